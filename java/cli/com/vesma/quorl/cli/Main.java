package com.vesma.quorl.cli;

import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlException;
import java.io.FileDescriptor;
import java.io.FileOutputStream;
import java.io.InputStream;
import java.io.OutputStreamWriter;
import java.io.PrintWriter;
import java.nio.charset.StandardCharsets;
import java.util.List;
import java.util.function.Function;
import picocli.CommandLine;
import picocli.CommandLine.Command;
import picocli.CommandLine.Help.Ansi;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.Spec;
import picocli.CommandLine.TypeConversionException;
import picocli.CommandLine.UnmatchedArgumentException;

/** The quorl command: sends, listens, asks and answers on subjects. */
@Command(name = "quorl", versionProvider = Main.Version.class, description = "Sends messages to subjects and listens to them.",
        subcommands = {SendCommand.class, ListenCommand.class, RequestCommand.class, ReplyCommand.class, RunCommand.class,
                CmCommand.class, FtCommand.class, StatsCommand.class, DemoCommand.class, DaemonCommand.class, DoctorCommand.class, HelpCommand.class},
        footer = {"", "Exit codes: 0 it worked, 1 it failed, 2 it was called wrongly.",
                "'quorl help COMMAND' explains a command."})
public final class Main implements Runnable {
    /** It worked. */
    static final int OK = 0;
    /** It was called rightly and failed. */
    static final int FAILED = 1;
    /** It was called wrongly; nothing was done. */
    static final int USAGE = 2;

    @Spec
    CommandSpec spec;

    @Option(names = {"-h", "--help"}, usageHelp = true, description = "show this help")
    boolean help;

    @Option(names = "--version", versionHelp = true, description = "show the version")
    boolean version;

    /** The version of the library that this command runs on. */
    static final class Version implements CommandLine.IVersionProvider {
        @Override
        public String[] getVersion() {
            return new String[] {"quorl " + Quorl.getVersion()};
        }
    }

    /** Standard input, for commands that read it. */
    final InputStream in;

    Main(InputStream in) {
        this.in = in;
    }

    public static void main(String[] arguments) {
        // The text is UTF-8 whatever the locale says, as it is in messages.
        PrintWriter out = writer(FileDescriptor.out);
        PrintWriter err = writer(FileDescriptor.err);
        String complaint = Arguments.whyNotText(arguments);
        int code = USAGE;
        if (complaint == null) {
            code = run(System.in, out, err, arguments);
        } else {
            err.println("quorl: " + complaint);
        }
        out.flush();
        err.flush();
        System.exit(code);
    }

    /** Runs one command line; the exit code. */
    static int run(InputStream in, PrintWriter out, PrintWriter err, String... arguments) {
        try {
            return commandLine(new Main(in), out, err).execute(arguments);
        } catch (LinkageError e) {
            out.flush();
            err.println("quorl: " + oneLine(e) + "; 'quorl doctor' says what to do");
        } catch (OutOfMemoryError e) {
            out.flush();
            err.println("quorl: there is too little memory: " + oneLine(e));
        }
        err.flush();
        return FAILED;
    }

    /** What an error says, without line ends. */
    static String oneLine(Throwable error) {
        String text = error.getMessage() == null ? error.toString() : error.getMessage();
        return text.strip().replaceAll("\\s*\\R\\s*", " ");
    }

    /** A command line with our way of reporting what is wrong. */
    static CommandLine commandLine(Object command, PrintWriter out, PrintWriter err) {
        CommandLine line = new CommandLine(command);
        line.setOut(out);
        line.setErr(err);
        line.setColorScheme(CommandLine.Help.defaultColorScheme(Ansi.OFF));
        line.setUsageHelpWidth(100);
        line.setPosixClusteredShortOptionsAllowed(false);
        line.registerConverter(Double.class, text -> number(text, Double::valueOf));
        line.registerConverter(double.class, text -> number(text, Double::valueOf));
        line.registerConverter(Long.class, text -> number(text, Long::valueOf));
        line.registerConverter(long.class, text -> number(text, Long::valueOf));
        line.setParameterExceptionHandler(Main::reportUsage);
        line.setExecutionExceptionHandler(Main::reportFailure);
        return line;
    }

    private static <T> T number(String text, Function<String, T> parse) {
        try {
            return parse.apply(text);
        } catch (NumberFormatException e) {
            throw new TypeConversionException("'" + text + "' is not a number that fits");
        }
    }

    /** quorl alone shows what it can do. */
    @Override
    public void run() {
        throw new ParameterException(spec.commandLine(), "no command is given");
    }

    private static int reportUsage(ParameterException problem, String[] arguments) {
        CommandLine command = problem.getCommandLine();
        command.getErr().println("quorl: " + complaint(problem));
        command.getErr().println("quorl: try '" + command.getCommandSpec().qualifiedName() + " --help'");
        command.getErr().flush();
        return USAGE;
    }

    /** What is wrong with a call. A word where a command belongs is told as such, with the commands that it may mean. */
    static String complaint(ParameterException problem) {
        if (problem instanceof UnmatchedArgumentException unmatched && !unmatched.isUnknownOption()
                && !problem.getCommandLine().getSubcommands().isEmpty()) {
            String word = unmatched.getUnmatched().get(0);
            // What picocli offers may be far; somebody who mistypes gets the first letter right.
            List<String> near = unmatched.getSuggestions().stream()
                    .filter(name -> word.regionMatches(true, 0, name, 0, 1)).toList();
            return "there is no command '" + word + "'"
                    + (near.isEmpty() ? "" : "; did you mean " + String.join(" or ", near) + "?");
        }
        return problem.getMessage();
    }

    private static int reportFailure(Exception failure, CommandLine command, CommandLine.ParseResult parsed) {
        command.getOut().flush();
        if (!(failure instanceof OutputClosed)) command.getErr().println("quorl: " + describe(failure));
        command.getErr().flush();
        return FAILED;
    }

    /** What to tell the user of a failure that a command did not expect. */
    static String describe(Exception failure) {
        // The library says with IllegalStateException that JSON needs a library that is not there.
        boolean explained = failure instanceof QuorlException || failure instanceof Failure
                || failure instanceof IllegalStateException;
        return explained ? failure.getMessage() : failure.toString();
    }

    private static PrintWriter writer(FileDescriptor file) {
        return new PrintWriter(new OutputStreamWriter(new FileOutputStream(file), StandardCharsets.UTF_8), false);
    }
}
