package com.vesma.quorl.cli;

import picocli.CommandLine.Command;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.ParentCommand;
import picocli.CommandLine.Spec;

/** quorl dq: distributed queues. */
@Command(name = "dq", description = {"Distributed queues: programs that share tasks, each done by one of them, whoever dies."},
        subcommands = {DqWorkCommand.class, DqSubmitCommand.class, DqStatusCommand.class},
        footer = {"", "'quorl help dq COMMAND' explains one of them.", "", "Examples:",
                "  quorl dq work crew 'orders.*' ./book --tasks 4 --daemon nats://127.0.0.1:4222",
                "  quorl dq submit crew orders.new number:i64=4711 --daemon nats://127.0.0.1:4222",
                "  quorl dq status crew --daemon nats://127.0.0.1:4222"})
final class DqCommand implements Runnable {
    @Spec
    CommandSpec spec;

    @ParentCommand
    Object parent;

    @Option(names = {"-h", "--help"}, usageHelp = true, description = "show this help")
    boolean help;

    @Override
    public void run() {
        throw new ParameterException(spec.commandLine(), "no command is given; there are " + String.join(", ", spec.subcommands().keySet()));
    }
}
