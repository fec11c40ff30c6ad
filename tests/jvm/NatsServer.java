package com.vesma.quorl;

import java.io.IOException;
import java.io.UncheckedIOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.List;
import java.util.concurrent.TimeUnit;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import java.util.stream.Stream;

/** A nats-server of a test, on a free port of this machine, in a folder of its own. It keeps its port when it is started again. */
final class NatsServer implements AutoCloseable {
    private static NatsServer shared;

    private final Path folder;
    private final String settings;
    private Process process;
    private int port = -1;
    private int clusterPort = -1;

    /**
     * Starts a server.
     *
     * @param settings further lines of its configuration
     */
    NatsServer(String settings) {
        this.settings = settings;
        try {
            folder = Files.createTempDirectory("quorl-server-");
            start();
        } catch (IOException e) {
            throw new UncheckedIOException(e);
        }
    }

    /** The one that all tests of this machine may use; it ends with the machine. */
    static synchronized NatsServer shared() {
        if (shared == null) {
            shared = new NatsServer("");
            Runtime.getRuntime().addShutdownHook(new Thread(shared::close));
        }
        return shared;
    }

    /** Starts it again after a kill; returns when it listens. */
    void start() throws IOException {
        Path configuration = folder.resolve("server.conf");
        Files.writeString(configuration, "host: 127.0.0.1\nport: " + port + "\nports_file_dir: \"" + folder + "\"\nlog_file: \""
                + folder.resolve("log") + "\"\n" + settings + "\n");
        Path own = Path.of("/usr/sbin/nats-server");
        process = new ProcessBuilder(Files.exists(own) ? own.toString() : "nats-server", "-c", configuration.toString())
                .redirectErrorStream(true).redirectOutput(folder.resolve("output").toFile()).start();
        Path ports = folder.resolve("nats-server_" + process.pid() + ".ports");
        for (long end = System.nanoTime() + OpenLibrary.LIMIT.toNanos(); System.nanoTime() < end && process.isAlive();) {
            List<Integer> found = portsIn(Files.exists(ports) ? Files.readString(ports) : "");
            if (!found.isEmpty()) {
                port = found.get(0);
                clusterPort = found.get(found.size() - 1);
                return;
            }
            Thread.onSpinWait();
        }
        throw new AssertionError("no server: " + Files.readString(folder.resolve("output")) + log());
    }

    /** Of the file that the server writes when it listens: for clients, then for the cluster. */
    private static List<Integer> portsIn(String json) {
        List<Integer> ports = new ArrayList<>();
        // The end of the file says that it is whole.
        if (json.trim().endsWith("}")) {
            for (String kind : List.of("nats", "cluster")) {
                Matcher found = Pattern.compile("\"" + kind + "\"\\s*:\\s*\\[\\s*\"\\w+://127\\.0\\.0\\.1:(\\d+)").matcher(json);
                if (found.find()) {
                    ports.add(Integer.valueOf(found.group(1)));
                }
            }
        }
        return ports;
    }

    String url() {
        return "nats://" + hostAndPort();
    }

    int port() {
        return port;
    }

    String hostAndPort() {
        return "127.0.0.1:" + port;
    }

    /** Where other servers of a cluster connect to. */
    String clusterUrl() {
        return "nats://127.0.0.1:" + clusterPort;
    }

    long pid() {
        return process.pid();
    }

    String log() {
        try {
            Path log = folder.resolve("log");
            return Files.exists(log) ? Files.readString(log) : "";
        } catch (IOException e) {
            throw new UncheckedIOException(e);
        }
    }

    /** As kill -9 does. */
    void kill() {
        process.destroyForcibly();
        try {
            if (!process.waitFor(OpenLibrary.LIMIT.toSeconds(), TimeUnit.SECONDS)) {
                throw new AssertionError("the server does not end");
            }
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    @Override
    public void close() {
        kill();
        try (Stream<Path> files = Files.walk(folder)) {
            for (Path file : files.sorted(Comparator.reverseOrder()).toList()) {
                Files.deleteIfExists(file);
            }
        } catch (IOException e) {
            throw new UncheckedIOException(e);
        }
    }
}
