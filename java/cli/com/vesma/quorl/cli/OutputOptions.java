package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsg;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import picocli.CommandLine.Option;

/** The options that say how messages that came are written; the same for listen and reply. */
final class OutputOptions {
    @Option(names = "--json", description = "print each message as a JSON object in one line, with the types of its fields")
    boolean json;

    @Option(names = "--csv", paramLabel = "FILE",
            description = "write a table of typed columns that 'quorl send --csv' reads; - is standard output")
    String csv;

    void check(Action action) {
        if (csv == null) return;
        if (json) throw action.usage("--json and --csv are two forms of the same; give one");
        if (csv.equals("-")) return;
        try {
            // What was recorded before is not lost to a command that is repeated.
            if (Files.isRegularFile(Path.of(csv)) && Files.size(Path.of(csv)) > 0) {
                throw action.usage("there is a file " + Texts.quoted(csv) + " already; name another, or add to it with "
                        + "--csv - >> FILE");
            }
        } catch (IOException e) {
            throw new Failure("cannot write " + Texts.quoted(csv) + ": " + TextSource.why(e));
        }
    }

    void print(Session session, QuorlMsg message) {
        if (csv == null) {
            session.print(Messages.line(message, json));
        } else {
            session.record(csv, message);
        }
    }

    /** Opens what is written to, so that it fails before anything is listened to. */
    void open(Session session) {
        if (csv != null) session.openTable(csv);
    }
}
