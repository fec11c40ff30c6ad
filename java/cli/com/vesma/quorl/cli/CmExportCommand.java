package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsg;
import java.io.PrintWriter;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Base64;
import java.util.List;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.Parameters;
import picocli.CommandLine.Spec;

/** quorl cm export: prints the messages of a ledger. */
@Command(name = "export", description = {"Prints the messages that a ledger keeps, as JSON objects, one a line. Changes nothing.",
        "'quorl send --json-file' and 'quorl cm send --json-file' send them. The program whose ledger it is must not run."},
        footer = {"", "Examples:", "  quorl cm export orders.ledger > orders.json", "  quorl cm export orders.ledger 'orders.>'"})
final class CmExportCommand implements Callable<Integer> {
    @Spec
    CommandSpec spec;

    @Option(names = {"-h", "--help"}, usageHelp = true, description = "show this help")
    boolean help;

    @Parameters(index = "0", paramLabel = "FILE", description = "the ledger")
    String ledger;

    @Parameters(index = "1", arity = "0..1", paramLabel = "SUBJECT", description = "a subject or pattern; without it all")
    String subject;

    @Override
    public Integer call() throws InterruptedException {
        List<String> arguments = new ArrayList<>(List.of("export", ledger));
        if (subject != null) {
            String why = Subjects.whyNotListenable(subject);
            if (why != null) throw new ParameterException(spec.commandLine(), "subject \"" + subject + "\": " + why);
            arguments.add(subject);
        }
        PrintWriter out = spec.commandLine().getOut();
        int code = LedgerProgram.run(arguments, spec.commandLine().getErr(), line -> {
            out.println(json(line));
            if (out.checkError()) throw new OutputClosed();
        });
        return code == 0 ? Main.OK : Main.FAILED;
    }

    /** Of a line of the program: number, expiry in nanoseconds, subject, reply subject, image; the fields as the library writes them. */
    static String json(String line) {
        String[] parts = line.split("\t", -1);
        StringBuilder out = new StringBuilder("{\"subject\":");
        Json.string(out, parts[2]);
        if (!parts[3].isEmpty()) Json.string(out.append(",\"reply\":"), parts[3]);
        out.append(",\"number\":").append(parts[0]);
        long expires = Long.parseLong(parts[1]);
        if (expires != 0) out.append(",\"expires\":\"").append(Instant.ofEpochSecond(0, expires)).append('"');
        try (QuorlMsg message = QuorlMsg.fromBytes(Base64.getDecoder().decode(parts[4]))) {
            return out.append(",\"message\":").append(message.toJson()).append('}').toString();
        }
    }
}
