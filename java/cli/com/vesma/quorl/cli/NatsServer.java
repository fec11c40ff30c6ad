package com.vesma.quorl.cli;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.OutputStream;
import java.net.BindException;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.ServerSocket;
import java.net.Socket;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Deque;
import java.util.List;
import java.util.concurrent.TimeUnit;

/**
 * A nats-server process on the loopback address, which ends with this process. It has no files: its settings come through its
 * standard input, and what it says is kept here.
 */
final class NatsServer implements AutoCloseable {
    /** Where Debian's package puts it; its folder is not on the path of everybody. */
    private static final List<String> FURTHER_FOLDERS = List.of("/usr/sbin", "/usr/local/bin", "/usr/local/sbin");

    private static final int START_SECONDS = 10;

    /** Lines of what it said that are kept. */
    private static final int KEPT_LINES = 50;

    private final Process process;
    private final int port;
    private final Deque<String> said = new ArrayDeque<>();
    private final Thread listener = new Thread(this::listen, "quorl-daemon-log");
    private final Thread atExit = new Thread(this::stop, "quorl-daemon-stop");
    private volatile boolean stopping;

    private NatsServer(Process process, int port) {
        this.process = process;
        this.port = port;
        listener.setDaemon(true);
        listener.start();
        Runtime.getRuntime().addShutdownHook(atExit);
    }

    /** The program, or null when it is not installed. */
    static Path find() {
        List<String> folders = new ArrayList<>();
        String path = System.getenv("PATH");
        if (path != null) folders.addAll(List.of(path.split(":")));
        folders.addAll(FURTHER_FOLDERS);
        return folders.stream().filter(folder -> !folder.isEmpty()).map(folder -> Path.of(folder, "nats-server"))
                .filter(Files::isExecutable).findFirst().orElse(null);
    }

    /** What the program says of its version; null when it says nothing. */
    static String version(Path program) throws InterruptedException {
        try {
            Process asked = new ProcessBuilder(program.toString(), "--version").redirectErrorStream(true).start();
            String said = new String(asked.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
            asked.waitFor(START_SECONDS, TimeUnit.SECONDS);
            return said.isBlank() ? null : said.strip().replaceFirst("^nats-server: *", "");
        } catch (IOException e) {
            return null;
        }
    }

    /** Starts one and waits until it takes connections. */
    static NatsServer start(Path program, int port, int maxPayload) throws InterruptedException {
        if (!Files.exists(program)) throw new Failure("there is no program " + Texts.quoted(program.toString()));
        if (Files.isDirectory(program) || !Files.isExecutable(program)) {
            throw new Failure(Texts.quoted(program.toString()) + " is not a program that may be run");
        }
        checkFree(port);
        // Messages only: nothing is kept on disk, and no port beside this one is opened.
        String settings = String.join("\n", "host: \"127.0.0.1\"", "port: " + port, "max_payload: " + maxPayload,
                "max_pending: " + Math.max(64 << 20, 4 * maxPayload), "write_deadline: \"10s\"", "logtime: false", "");
        List<String> command = new ArrayList<>();
        // A terminal's Ctrl-C is for this process, which stops the server; and whatever ends this process ends the server too.
        if (Files.isExecutable(Path.of("/usr/bin/setsid"))) command.add("/usr/bin/setsid");
        if (Files.isExecutable(Path.of("/usr/bin/setpriv"))) {
            command.addAll(List.of("/usr/bin/setpriv", "--pdeathsig", "TERM"));
        }
        command.addAll(List.of(program.toString(), "-c", "/dev/stdin"));
        NatsServer server;
        try {
            server = new NatsServer(new ProcessBuilder(command).redirectErrorStream(true).start(), port);
        } catch (IOException e) {
            throw new Failure("cannot start " + program + ": " + e.getMessage());
        }
        try {
            server.tell(settings);
            server.awaitStart();
            return server;
        } catch (InterruptedException | RuntimeException e) {
            server.close();
            throw e;
        }
    }

    /** Failure when another program has the port, or this user may not. */
    private static void checkFree(int port) {
        try (ServerSocket socket = new ServerSocket()) {
            socket.bind(new InetSocketAddress(InetAddress.getByName("127.0.0.1"), port), 1);
        } catch (BindException e) {
            if (e.getMessage() != null && e.getMessage().contains("Permission")) {
                throw new Failure("port " + port + " is for the system's administrator; take one from 1024 on, such as --port 4222");
            }
            throw new Failure("port " + port + " is in use by " + who(port) + "; --port 0 chooses a free one");
        } catch (IOException e) {
            throw new Failure("port " + port + ": " + e.getMessage());
        }
    }

    private static String who(int port) {
        try {
            DaemonGreeting greeting = DaemonGreeting.hear(new DaemonAddress(false, "127.0.0.1", port));
            return "a daemon of version " + greeting.version() + ", which programs may use: --daemon nats://127.0.0.1:" + port;
        } catch (Failure e) {
            return "another program";
        }
    }

    private void tell(String settings) {
        try (OutputStream in = process.getOutputStream()) {
            in.write(settings.getBytes(StandardCharsets.UTF_8));
        } catch (IOException e) {
            // It has ended already; the wait for its start says why.
        }
    }

    private void listen() {
        try (BufferedReader lines = process.inputReader(StandardCharsets.UTF_8)) {
            for (String line = lines.readLine(); line != null; line = lines.readLine()) {
                synchronized (said) {
                    if (said.size() == KEPT_LINES) said.removeFirst();
                    if (!line.isBlank()) said.addLast(line.strip());
                }
            }
        } catch (IOException e) {
            // It was stopped.
        }
    }

    private void awaitStart() throws InterruptedException {
        long end = System.nanoTime() + TimeUnit.SECONDS.toNanos(START_SECONDS);
        while (!answers()) {
            if (process.waitFor(20, TimeUnit.MILLISECONDS)) throw ended();
            if (System.nanoTime() > end) throw new Failure("the daemon did not start within " + START_SECONDS + " s");
        }
        // Another program may have answered at this port while ours was refused it.
        if (process.waitFor(50, TimeUnit.MILLISECONDS)) throw ended();
    }

    private boolean answers() {
        try (Socket socket = new Socket()) {
            socket.connect(new InetSocketAddress(InetAddress.getByName("127.0.0.1"), port), 1000);
            return true;
        } catch (IOException e) {
            return false;
        }
    }

    /** Why it ended, as far as it said something of it. */
    private Failure ended() throws InterruptedException {
        listener.join(TimeUnit.SECONDS.toMillis(1));
        String last = null;
        synchronized (said) {
            for (String line : said) {
                // "[INF]" lines tell how it went, not what went wrong.
                if (!line.contains("[INF]")) last = line.replaceFirst("^\\[[0-9]+\\] ", "");
            }
        }
        return new Failure("the daemon ended, with exit code " + process.exitValue() + (last == null ? "" : ": " + last));
    }

    long pid() {
        return process.pid();
    }

    String address() {
        return "nats://127.0.0.1:" + port;
    }

    /** Waits until it ends by itself, which is a failure, or for so many seconds when that is not null. */
    void await(Double seconds) throws InterruptedException {
        if (seconds == null) {
            process.waitFor();
        } else if (!process.waitFor((long) (seconds * 1e9), TimeUnit.NANOSECONDS)) {
            return;
        }
        if (!stopping) throw ended();
    }

    @Override
    public void close() {
        try {
            Runtime.getRuntime().removeShutdownHook(atExit);
        } catch (IllegalStateException e) {
            return;  // the process ends, and the hook does it
        }
        stop();
    }

    private void stop() {
        stopping = true;
        process.destroy();
        try {
            if (!process.waitFor(5, TimeUnit.SECONDS)) process.destroyForcibly().waitFor();
        } catch (InterruptedException e) {
            process.destroyForcibly();
            Thread.currentThread().interrupt();
        }
    }
}
