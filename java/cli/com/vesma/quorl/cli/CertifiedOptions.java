package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlCmTransport;
import com.vesma.quorl.QuorlDurability;
import com.vesma.quorl.QuorlTransport;
import java.nio.file.Path;
import picocli.CommandLine.Option;

/** The options that say under which name, and with which ledger, a command takes part in certified delivery. */
final class CertifiedOptions {
    @Option(names = "--name", paramLabel = "NAME",
            description = "the lasting name; without it, one that ends with the command")
    String name;

    @Option(names = "--ledger", paramLabel = "FILE",
            description = "the file that remembers what was sent and received; made when it is not there")
    String ledger;

    @Option(names = "--durability", paramLabel = "LEVEL",
            description = "what a message survives once it was sent: process, the end of the process; power, the loss of power too")
    String durability;

    void check(Action action) {
        if (name != null) checkName(action, "--name", name);
        if (ledger != null && name == null) throw action.usage("--ledger needs a --name, whose ledger it is");
        if (durability == null) return;
        if (ledger == null) throw action.usage("--durability is about the --ledger; there is none");
        if (level() == null) throw action.usage("--durability takes process or power, not " + Texts.quoted(durability));
    }

    static void checkName(Action action, String option, String name) {
        String why = Subjects.whyNotCertifiedName(name);
        if (why != null) throw action.usage(option + " " + Texts.quoted(name) + ": " + why);
    }

    private QuorlDurability level() {
        return switch (durability) {
            case "process" -> QuorlDurability.PROCESS;
            case "power" -> QuorlDurability.POWER;
            default -> null;
        };
    }

    /** old: whether what was kept for the name before is asked for, if there is a name that it can be kept for. */
    QuorlCmTransport open(QuorlTransport transport, boolean old) {
        QuorlCmTransport.Builder builder = QuorlCmTransport.builder(transport);
        if (name != null) builder.name(name);
        if (ledger != null) builder.ledger(Path.of(ledger));
        if (durability != null) builder.durability(level());
        return builder.requestOld(old && name != null).open();
    }
}
