package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.concurrent.TimeUnit;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** A server of a test, with settings of its own, on a free port; ended when the test ends. */
final class ConfiguredServer implements AutoCloseable {
    private static final Pattern PORT = Pattern.compile("nats://127\\.0\\.0\\.1:(\\d+)");

    final String address;
    private final Process process;

    ConfiguredServer(Path folder, String... settings) throws IOException, InterruptedException {
        Path own = Files.createTempDirectory(folder, "server");
        Path configuration = own.resolve("server.conf");
        Files.writeString(configuration, String.join("\n", "host: \"127.0.0.1\"", "port: -1", "ports_file_dir: \"" + own + "\"",
                String.join("\n", settings), ""));
        process = new ProcessBuilder(NatsServer.find().toString(), "-c", configuration.toString()).redirectErrorStream(true)
                .redirectOutput(own.resolve("log").toFile()).start();
        Path ports = own.resolve("nats-server_" + process.pid() + ".ports");
        long end = System.nanoTime() + TimeUnit.SECONDS.toNanos(ChildCommand.LIMIT);
        String port = null;
        while (port == null) {
            assertTrue(process.isAlive() && System.nanoTime() < end, Files.readString(own.resolve("log")));
            Matcher found = PORT.matcher(Files.exists(ports) ? Files.readString(ports) : "");
            if (found.find()) port = found.group(1);
        }
        address = "nats://127.0.0.1:" + port;
    }

    /** One user, whom nobody has to name, with these permissions. */
    static String userWith(String permissions) {
        return "authorization { users: [ { user: u, password: p, permissions: { " + permissions + " } } ] }\nno_auth_user: u";
    }

    void signal(String name) throws IOException, InterruptedException {
        Process kill = new ProcessBuilder("kill", "-" + name, Long.toString(process.pid())).start();
        assertTrue(kill.waitFor(ChildCommand.LIMIT, TimeUnit.SECONDS) && kill.exitValue() == 0);
    }

    @Override
    public void close() {
        process.destroyForcibly();
        process.onExit().orTimeout(ChildCommand.LIMIT, TimeUnit.SECONDS).join();
    }
}
