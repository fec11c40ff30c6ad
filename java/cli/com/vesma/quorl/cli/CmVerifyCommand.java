package com.vesma.quorl.cli;

import java.io.PrintWriter;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;
import picocli.CommandLine.Spec;

/** quorl cm verify: looks for damage in a ledger. */
@Command(name = "verify", description = {"Looks at every page and message of a ledger, and tells what is damaged. Changes nothing.",
        "The program whose ledger it is must not run."},
        footer = {"", "The exit code is 1 for a ledger that is damaged.", "", "Examples:", "  quorl cm verify orders.ledger",
                "  quorl cm verify orders.ledger --json"})
final class CmVerifyCommand implements Callable<Integer> {
    @Spec
    CommandSpec spec;

    @Option(names = {"-h", "--help"}, usageHelp = true, description = "show this help")
    boolean help;

    @Parameters(index = "0", paramLabel = "FILE", description = "the ledger")
    String ledger;

    @Option(names = "--json", description = "print what is found as JSON objects, one a line")
    boolean json;

    @Override
    public Integer call() throws InterruptedException {
        PrintWriter out = spec.commandLine().getOut();
        List<String> arguments = new ArrayList<>(List.of("verify", ledger));
        if (json) arguments.add("--json");
        int code = LedgerProgram.run(arguments, spec.commandLine().getErr(), out::println);
        return code == 0 ? Main.OK : Main.FAILED;
    }
}
