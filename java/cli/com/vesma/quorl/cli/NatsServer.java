package com.vesma.quorl.cli;

import java.io.IOException;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.Socket;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.TimeUnit;
import java.util.stream.Stream;

/** A nats-server process on the loopback address, which ends with this process. */
final class NatsServer implements AutoCloseable {
    /** Where Debian's package puts it; its folder is not on the path of everybody. */
    private static final List<String> FURTHER_FOLDERS = List.of("/usr/sbin", "/usr/local/bin", "/usr/local/sbin");

    private static final int START_SECONDS = 10;

    private final Process process;
    private final Path folder;
    private final int port;
    private final Thread atExit = new Thread(this::stop, "quorl-daemon-stop");

    private NatsServer(Process process, Path folder, int port) {
        this.process = process;
        this.folder = folder;
        this.port = port;
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
        Path folder = null;
        NatsServer server = null;
        try {
            folder = Files.createTempDirectory("quorl-daemon", PosixFilePermissions.asFileAttribute(
                    PosixFilePermissions.fromString("rwx------")));
            Path settings = folder.resolve("nats-server.conf");
            // Messages only: nothing is kept on disk, and no port beside this one is opened.
            Files.writeString(settings, String.join("\n", "host: \"127.0.0.1\"", "port: " + port,
                    "max_payload: " + maxPayload, "max_pending: " + Math.max(64 << 20, 4 * maxPayload),
                    "write_deadline: \"10s\"", "logtime: true", "log_file: \"" + folder.resolve("log") + "\"", ""));
            List<String> command = new ArrayList<>();
            // Whatever ends this process ends the server too.
            if (Files.isExecutable(Path.of("/usr/bin/setpriv"))) {
                command.addAll(List.of("/usr/bin/setpriv", "--pdeathsig", "TERM"));
            }
            command.addAll(List.of(program.toString(), "-c", settings.toString()));
            Process process = new ProcessBuilder(command).redirectErrorStream(true)
                    .redirectOutput(folder.resolve("output").toFile()).start();
            server = new NatsServer(process, folder, port);
            server.awaitStart();
            return server;
        } catch (IOException e) {
            throw new Failure("cannot start " + program + ": " + e.getMessage());
        } catch (InterruptedException | RuntimeException e) {
            if (server != null) {
                server.close();
            } else if (folder != null) {
                delete(folder);
            }
            throw e;
        }
    }

    private void awaitStart() throws InterruptedException {
        long end = System.nanoTime() + TimeUnit.SECONDS.toNanos(START_SECONDS);
        while (!answers()) {
            if (process.waitFor(20, TimeUnit.MILLISECONDS)) throw new Failure("the daemon ended: " + lastWords());
            if (System.nanoTime() > end) throw new Failure("the daemon did not start within " + START_SECONDS + " s");
        }
        // Another program may have answered at this port while ours was refused it.
        if (process.waitFor(50, TimeUnit.MILLISECONDS)) throw new Failure("the daemon ended: " + lastWords());
    }

    private boolean answers() {
        try (Socket socket = new Socket()) {
            socket.connect(new InetSocketAddress(InetAddress.getLoopbackAddress(), port), 1000);
            return true;
        } catch (IOException e) {
            return false;
        }
    }

    private String lastWords() {
        for (String name : List.of("output", "log")) {
            try {
                List<String> lines = Files.readAllLines(folder.resolve(name));
                for (int i = lines.size() - 1; i >= 0; i--) {
                    if (!lines.get(i).isBlank()) return lines.get(i).strip();
                }
            } catch (IOException e) {
                // It had nothing to say there.
            }
        }
        return "it said nothing";
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
        throw new Failure("the daemon ended: " + lastWords());
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
        process.destroy();
        try {
            if (!process.waitFor(5, TimeUnit.SECONDS)) process.destroyForcibly().waitFor();
        } catch (InterruptedException e) {
            process.destroyForcibly();
            Thread.currentThread().interrupt();
        }
        delete(folder);
    }

    private static void delete(Path folder) {
        try (Stream<Path> files = Files.list(folder)) {
            for (Path file : files.toList()) Files.deleteIfExists(file);
            Files.deleteIfExists(folder);
        } catch (IOException e) {
            // A folder of temporary files that stays harms nobody.
        }
    }
}
