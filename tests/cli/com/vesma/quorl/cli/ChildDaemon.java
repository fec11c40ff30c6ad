package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.file.Path;
import java.util.Map;
import java.util.List;
import java.util.concurrent.TimeUnit;

/** quorl daemon in a process of its own, on a free port; ended when the test ends. */
final class ChildDaemon implements AutoCloseable {
    final ChildCommand child;
    final String address;

    /** The process id of the server. */
    final long pid;

    ChildDaemon(Path folder) throws IOException {
        this(folder, List.of());
    }

    /** With options of the virtual machine. */
    ChildDaemon(Path folder, List<String> options) throws IOException {
        child = new ChildCommand(folder, Map.of(), options, List.of("daemon", "--port", "0"));
        String first = child.line();
        assertTrue(first.matches("The daemon runs at nats://127\\.0\\.0\\.1:[0-9]+ \\(process [0-9]+\\)\\."), first);
        address = first.replaceAll("^.*(nats://\\S+) .*$", "$1");
        pid = Long.parseLong(first.replaceAll("^.*process ([0-9]+).*$", "$1"));
        assertTrue(child.line().contains("--daemon " + address));
        assertTrue(child.line().contains("kill " + child.process.pid()));
    }

    boolean serverRuns() {
        return ProcessHandle.of(pid).map(ProcessHandle::isAlive).orElse(false);
    }

    void awaitEndOfServer() {
        ProcessHandle.of(pid).ifPresent(server -> server.onExit().orTimeout(ChildCommand.LIMIT, TimeUnit.SECONDS).join());
        assertFalse(serverRuns());
    }

    @Override
    public void close() {
        child.close();
        awaitEndOfServer();
    }
}
