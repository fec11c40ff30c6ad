package com.vesma.quorl.cli;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.PrintWriter;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import picocli.CommandLine;
import picocli.CommandLine.Command;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.Parameters;

/** quorl run: runs several commands in one process, so that they share one bus. */
@Command(name = "run", description = {"Runs commands from a script, one a line, in one process and on one bus.",
        "listen and reply stay active while the lines after them run. After each line, what it sent to this process has "
                + "been delivered. At the end, listen and reply lines with a --count are waited for."},
        footer = {"", "A line is a command with its arguments, quoted as in a shell; # starts a comment. Besides the",
                "commands there is 'wait SECONDS'.", "", "Example:",
                "  quorl run -e \"listen 'plant.>'\" -e 'send plant.line3.temp celsius:f64=71.5'"})
final class RunCommand extends Action {
    @Parameters(arity = "0..1", paramLabel = "FILE", description = "the script; - or nothing is standard input, line by line")
    String file;

    @Option(names = {"-e", "--execute"}, paramLabel = "LINE", description = "a line of the script; may be given often")
    List<String> lines;

    @CommandLine.ParentCommand
    Main main;

    /** What a script may say. */
    @Command(name = "script", subcommands = {SendCommand.class, ListenCommand.class, RequestCommand.class,
            ReplyCommand.class, CmCommand.class, DqCommand.class, StatsCommand.class, WaitCommand.class})
    private static final class Script {}

    private record Line(String place, Action action) {}

    @Override
    void check() {
        if (file != null && lines != null) throw usage("a script comes from a file or from -e, not from both");
    }

    @Override
    String aloneOnTheBus() {
        return null;
    }

    @Override
    void begin(Session session) throws InterruptedException {
        if (lines != null) {
            runChecked(session, "-e line", lines);
        } else if (file == null || file.equals("-")) {
            runAsTheyCome(session);
        } else {
            runChecked(session, file + " line", read(Path.of(file)));
        }
    }

    /** Looks at all lines before the first one runs. */
    private void runChecked(Session session, String source, List<String> script) throws InterruptedException {
        List<Line> checked = new ArrayList<>();
        for (int i = 0; i < script.size(); i++) {
            Line line = parse(source + " " + (i + 1), script.get(i));
            if (line != null) checked.add(line);
        }
        for (Line line : checked) run(session, line);
        for (Line line : checked) finish(session, line);
    }

    /** Runs each line when it is read: somebody may be typing them, or a program writing them. */
    private void runAsTheyCome(Session session) throws InterruptedException {
        List<Line> run = new ArrayList<>();
        BufferedReader reader = new BufferedReader(new InputStreamReader(main.in, StandardCharsets.UTF_8));
        try {
            int number = 0;
            for (String text = reader.readLine(); text != null; text = reader.readLine()) {
                Line line = parse("standard input line " + ++number, text);
                if (line == null) continue;
                run(session, line);
                run.add(line);
            }
        } catch (IOException e) {
            throw new Failure("standard input: " + e.getMessage());
        }
        for (Line line : run) finish(session, line);
    }

    private Line parse(String place, String text) {
        try {
            List<String> words = ScriptLine.words(text);
            if (words.isEmpty()) return null;
            // A line copied from a shell works too.
            if (words.get(0).equals("quorl")) words = words.subList(1, words.size());
            CommandLine script = Main.commandLine(new Script(), out(), err());
            CommandLine.ParseResult parsed = script.parseArgs(words.toArray(String[]::new));
            if (!parsed.hasSubcommand()) {
                throw usage("no command; a script has send, listen, request, reply, cm, dq, stats and wait");
            }
            CommandLine.ParseResult command = parsed.subcommand();
            while (command.hasSubcommand()) command = command.subcommand();
            if (command.isUsageHelpRequested()) throw usage("--help is for the command line, not for a script");
            if (!(command.commandSpec().userObject() instanceof Action action)) {
                throw usage("'" + command.commandSpec().qualifiedName(" ").replaceFirst("^script ", "") + "' is for the command line, not for a script");
            }
            action.transport.defaultTo(transport);
            action.check();
            action.checkTransport();
            return new Line(place, action);
        } catch (ParameterException e) {
            throw usage(place + ": " + Main.complaint(e));
        } catch (IllegalArgumentException e) {
            throw usage(place + ": " + e.getMessage());
        }
    }

    private static void run(Session session, Line line) throws InterruptedException {
        try {
            line.action.begin(session);
            session.settle();
        } catch (OutputClosed e) {
            throw e;
        } catch (RuntimeException e) {
            throw new Failure(line.place + ": " + Main.describe(e));
        }
    }

    private static void finish(Session session, Line line) throws InterruptedException {
        try {
            line.action.finish(session, false);
        } catch (OutputClosed e) {
            throw e;
        } catch (RuntimeException e) {
            throw new Failure(line.place + ": " + Main.describe(e));
        }
    }

    private List<String> read(Path path) {
        try {
            return Files.readAllLines(path);
        } catch (NoSuchFileException e) {
            throw usage("there is no file \"" + path + "\"");
        } catch (IOException e) {
            throw new Failure("cannot read \"" + path + "\": " + e.getMessage());
        }
    }
}
