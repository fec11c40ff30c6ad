package com.vesma.quorl.cli;

import java.util.List;
import java.util.concurrent.Callable;
import picocli.CommandLine;
import picocli.CommandLine.Command;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.Parameters;
import picocli.CommandLine.Spec;

/** quorl help: shows what --help shows. */
@Command(name = "help", description = "Shows the help of a command, or of all.",
        footer = {"", "Examples:", "  quorl help", "  quorl help send", "  quorl help cm listen"})
final class HelpCommand implements Callable<Integer> {
    @Spec
    CommandSpec spec;

    @Option(names = {"-h", "--help"}, usageHelp = true, description = "show this help")
    boolean help;

    @Parameters(arity = "0..2", paramLabel = "COMMAND", description = "the command; without it all are listed")
    List<String> commands = List.of();

    @Override
    public Integer call() {
        CommandLine all = spec.parent().commandLine();
        CommandLine shown = all;
        for (String command : commands) {
            shown = shown.getSubcommands().get(command);
            if (shown == null) throw new ParameterException(all, "there is no command '" + String.join(" ", commands) + "'");
        }
        shown.usage(spec.commandLine().getOut());
        return Main.OK;
    }
}
