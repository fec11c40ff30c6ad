package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsg;
import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.Reader;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.util.List;
import java.util.concurrent.locks.LockSupport;
import picocli.CommandLine.Command;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;
import picocli.CommandLine.ParentCommand;

/** quorl send: sends one message, or many. */
@Command(name = "send", description = "Sends a message to a subject, or one for each record of a table.",
        footer = {"", "A table's first record names its columns, each name:type; an empty cell leaves the field out.", "",
                "Examples:", "  quorl send plant.line3.temp celsius:f64=71.5 at:datetime=now note:string='after the break'",
                "  quorl send plant.line3.temp --csv measured.csv --rate 10"})
final class SendCommand extends Action {
    @Parameters(index = "0", paramLabel = "SUBJECT", description = "where to send; no wildcards")
    String subject;

    @Parameters(index = "1..*", arity = "0..*", paramLabel = "FIELD",
            description = "name:type=value; {n} in a value is the message's number, from 1")
    List<String> arguments = List.of();

    @Option(names = {"-n", "--count"}, paramLabel = "N",
            description = "send N messages; without it one, or one for each record of the table")
    Long count;

    @Option(names = "--csv", paramLabel = "FILE", description = "send a table's records; - is standard input")
    String csv;

    @Option(names = "--rate", paramLabel = "N", description = "send N messages a second; without it, as fast as possible")
    Double rate;

    @ParentCommand
    Object parent;

    private List<FieldArgument> fields;

    @Override
    void check() {
        checkSendable(subject);
        if (count != null) checkAtLeast("--count", count, 1);
        if (rate != null && !(rate > 0 && rate < 1e9)) {
            throw usage("--rate takes a number above 0, not " + Texts.number(rate));
        }
        fields = fields(arguments);
        // The last number is the largest: what it fits, the numbers between fit too.
        if (count != null) fields(arguments).forEach(field -> checkValue(field.numbered(count)));
        // A file can be read twice, so that nothing is sent of one with a mistake; standard input cannot.
        if (csv == null) return;
        if (!csv.equals("-")) {
            checkTable();
        } else if (!(parent instanceof Main)) {
            throw usage("--csv - is for the command line; a script names a file");
        }
    }

    private void checkTable() {
        try (Reader in = open()) {
            CsvFields table = new CsvFields(in, csv);
            while (table.next() != null) {}
        } catch (IllegalArgumentException e) {
            throw usage(e.getMessage());
        } catch (IOException e) {
            throw new Failure("cannot read \"" + csv + "\": " + e.getMessage());
        }
    }

    private Reader open() throws IOException {
        if (!csv.equals("-")) {
            try {
                return Files.newBufferedReader(Path.of(csv));
            } catch (NoSuchFileException e) {
                throw usage("there is no file \"" + csv + "\"");
            }
        }
        return new BufferedReader(new InputStreamReader(((Main) parent).in, StandardCharsets.UTF_8));
    }

    private void checkValue(FieldArgument field) {
        try {
            field.value();
        } catch (IllegalArgumentException e) {
            throw usage(e.getMessage());
        }
    }

    @Override
    String aloneOnTheBus() {
        return "nobody in another process can hear this message.";
    }

    @Override
    void begin(Session session) throws InterruptedException {
        if (csv == null) {
            sendFields(session);
        } else {
            sendTable(session);
        }
    }

    private void sendFields(Session session) throws InterruptedException {
        boolean numbered = arguments.stream().anyMatch(argument -> argument.contains("{n}"));
        long start = System.nanoTime();
        long last = count == null ? 1 : count;
        QuorlMsg message = Messages.create(subject, fields, 1);
        try {
            for (long n = 1; n <= last; n++) {
                awaitTurn(start, n);
                if (numbered && n > 1) {
                    message.close();
                    message = Messages.create(subject, fields, n);
                }
                session.send(transport, message);
            }
        } finally {
            message.close();
        }
    }

    private void sendTable(Session session) throws InterruptedException {
        long start = System.nanoTime();
        long sent = 0;
        try (Reader in = open()) {
            CsvFields table = new CsvFields(in, csv.equals("-") ? "standard input" : csv);
            while (count == null || sent < count) {
                List<FieldArgument> record = table.next();
                if (record == null) break;
                awaitTurn(start, sent + 1);
                try (QuorlMsg message = Messages.create(subject, fields, sent + 1)) {
                    Messages.addAsTheyAre(message, record);
                    session.send(transport, message);
                }
                sent++;
            }
        } catch (IllegalArgumentException e) {
            throw new Failure(e.getMessage() + "; " + sent + " messages were sent before it");
        } catch (IOException e) {
            throw new Failure("cannot read \"" + csv + "\": " + e.getMessage());
        }
    }

    private void awaitTurn(long start, long n) throws InterruptedException {
        if (rate != null) sleepUntil(start + (long) ((n - 1) / rate * 1e9));
    }

    private static void sleepUntil(long nanoTime) throws InterruptedException {
        for (long left = nanoTime - System.nanoTime(); left > 0; left = nanoTime - System.nanoTime()) {
            LockSupport.parkNanos(left);
            if (Thread.interrupted()) throw new InterruptedException();
        }
    }
}
