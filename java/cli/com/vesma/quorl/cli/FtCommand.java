package com.vesma.quorl.cli;

import picocli.CommandLine.Command;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.ParentCommand;
import picocli.CommandLine.Spec;

/** quorl ft: fault tolerance. */
@Command(name = "ft", description = {"Fault tolerance: groups of programs in which a set number is active at a time.",
        "When an active one dies, hangs or leaves, the next takes its place."},
        subcommands = {FtJoinCommand.class, FtWatchCommand.class},
        footer = {"", "'quorl help ft COMMAND' explains one of them.", "", "Examples:",
                "  quorl ft join plant.archive --daemon nats://127.0.0.1:4222 --exec archive --into /srv/archive",
                "  quorl ft watch plant.archive --daemon nats://127.0.0.1:4222"})
final class FtCommand implements Runnable {
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
