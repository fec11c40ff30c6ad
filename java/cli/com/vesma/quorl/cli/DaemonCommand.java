package com.vesma.quorl.cli;

import java.io.IOException;
import java.io.PrintWriter;
import java.net.InetAddress;
import java.net.ServerSocket;
import java.nio.file.Path;
import java.util.concurrent.Callable;
import java.util.function.Supplier;
import picocli.CommandLine.Command;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.Spec;

/** quorl daemon: runs a daemon for the programs of this machine. */
@Command(name = "daemon", description = {"Runs a daemon (nats-server) for the programs of this machine.",
        "It listens on 127.0.0.1 only, asks nobody who they are, keeps nothing on disk, and ends with this command."},
        footer = {"", "It prints its address and how to stop it. Between machines run a nats-server of your own.", "",
                "Examples:", "  quorl daemon", "  quorl daemon --port 0 --timeout 3600"})
final class DaemonCommand implements Callable<Integer> {
    private static final int MEBIBYTE = 1 << 20;

    /** Finds the nats-server. */
    private final Supplier<Path> installed;

    @Spec
    CommandSpec spec;

    @Option(names = {"-h", "--help"}, usageHelp = true, description = "show this help")
    boolean help;

    @Option(names = {"-p", "--port"}, paramLabel = "PORT", defaultValue = "4222",
            description = "where to listen (${DEFAULT-VALUE}); 0 chooses a free one")
    int port;

    @Option(names = "--max-payload", paramLabel = "MIB", defaultValue = "8",
            description = "MiB of a message that travels in one piece, 1 to 64 (${DEFAULT-VALUE})")
    int maxPayload;

    @Option(names = "--server", paramLabel = "FILE", description = "the nats-server to run; without it the one on the path")
    String program;

    @Option(names = {"--timeout", "--seconds"}, paramLabel = "SECONDS", description = "end after that time")
    Double seconds;

    DaemonCommand() {
        this(NatsServer::find);
    }

    DaemonCommand(Supplier<Path> installed) {
        this.installed = installed;
    }

    @Override
    public Integer call() throws InterruptedException {
        if (port < 0 || port > 65535) throw usage("--port takes a number from 0 to 65535, not " + port);
        if (maxPayload < 1 || maxPayload > 64) throw usage("--max-payload takes a number from 1 to 64, not " + maxPayload);
        if (seconds != null && !(seconds > 0 && seconds < 1e9)) {
            throw usage(Arguments.given(spec, "--seconds", "--timeout") + " takes a number above 0, not " + Texts.number(seconds));
        }
        Path path = program != null ? Path.of(program) : installed.get();
        if (path == null) {
            throw new Failure("there is no nats-server on this machine; 'apt-get install nats-server' brings one, "
                    + "--server FILE names one that is elsewhere");
        }
        try (NatsServer server = NatsServer.start(path, port == 0 ? freePort() : port, maxPayload * MEBIBYTE)) {
            PrintWriter out = spec.commandLine().getOut();
            out.println("The daemon runs at " + server.address() + " (nats-server, process " + server.pid() + ").");
            out.println("Connect:  quorl listen '>' --daemon " + server.address());
            out.println("Stop:     Ctrl-C here, or kill " + ProcessHandle.current().pid() + ", which is this command");
            out.flush();
            server.await(seconds);
        }
        return 0;
    }

    static int freePort() {
        try (ServerSocket socket = new ServerSocket(0, 1, InetAddress.getLoopbackAddress())) {
            return socket.getLocalPort();
        } catch (IOException e) {
            throw new Failure("no free port: " + e.getMessage());
        }
    }

    private ParameterException usage(String message) {
        return new ParameterException(spec.commandLine(), message);
    }
}
