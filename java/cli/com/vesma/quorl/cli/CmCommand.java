package com.vesma.quorl.cli;

import picocli.CommandLine.Command;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.ParentCommand;
import picocli.CommandLine.Spec;

/** quorl cm: certified delivery. */
@Command(name = "cm", description = {"Certified delivery: messages that are kept until their listeners have confirmed them.",
        "Sender and listener have lasting names, and ledgers that remember what was sent and received."},
        subcommands = {CmSendCommand.class, CmResumeCommand.class, CmListenCommand.class, CmReviewCommand.class, CmVerifyCommand.class,
                CmExportCommand.class, CmDemoCommand.class},
        footer = {"", "'quorl help cm COMMAND' explains one of them.", "", "Examples:",
                "  quorl cm listen 'orders.>' --name billing --ledger billing.ledger --daemon nats://127.0.0.1:4222",
                "  quorl cm send orders.new number:i64=4711 --name orders --ledger orders.ledger --listener billing "
                        + "--daemon nats://127.0.0.1:4222",
                "  quorl cm review --name orders --ledger orders.ledger"})
final class CmCommand implements Runnable {
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
