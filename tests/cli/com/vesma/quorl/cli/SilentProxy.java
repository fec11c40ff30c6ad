package com.vesma.quorl.cli;

import java.io.IOException;
import java.io.InputStream;
import java.net.InetAddress;
import java.net.ServerSocket;
import java.net.Socket;
import java.net.URI;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;

/** A way to a daemon, on which the daemon is not heard any more once a client has said a word. */
final class SilentProxy implements AutoCloseable {
    final String address;
    private final ServerSocket listening = new ServerSocket(0, 50, InetAddress.getLoopbackAddress());
    private final List<Socket> sockets = Collections.synchronizedList(new ArrayList<>());
    private final String word;
    private volatile boolean silent;

    SilentProxy(String daemon, String word) throws IOException {
        this.word = word;
        address = "nats://127.0.0.1:" + listening.getLocalPort();
        URI to = URI.create(daemon);
        start(() -> {
            for (;;) {
                Socket client = listening.accept();
                sockets.add(client);
                Socket server = new Socket(to.getHost(), to.getPort());
                sockets.add(server);
                start(() -> copy(client, server, true));
                start(() -> copy(server, client, false));
            }
        });
    }

    private interface Work {
        void run() throws IOException;
    }

    private static void start(Work work) {
        Thread thread = new Thread(() -> {
            try {
                work.run();
            } catch (IOException e) {
                // A socket was closed.
            }
        }, "silent-proxy");
        thread.setDaemon(true);
        thread.start();
    }

    private void copy(Socket from, Socket to, boolean byClient) throws IOException {
        InputStream in = from.getInputStream();
        byte[] bytes = new byte[1 << 16];
        for (int count = in.read(bytes); count > 0; count = in.read(bytes)) {
            if (byClient && new String(bytes, 0, count, StandardCharsets.ISO_8859_1).contains(word)) silent = true;
            if (byClient || !silent) to.getOutputStream().write(bytes, 0, count);
        }
    }

    @Override
    public void close() throws IOException {
        listening.close();
        synchronized (sockets) {
            for (Socket each : sockets) each.close();
        }
    }
}
