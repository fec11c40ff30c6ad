package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsg;
import java.util.List;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;
import picocli.CommandLine.ParentCommand;

/** quorl request: sends a message and prints the first reply. */
@Command(name = "request", description = "Sends a request to a subject, waits for the first reply and prints it; with --count or "
        + "--csv several, each after the reply to the one before.",
        footer = {"", "The first request without a reply ends the command.", "",
                "Examples:", "  quorl request clock.time zone:string=UTC --timeout 2 --daemon nats://127.0.0.1:4222",
                "  quorl request clock.time --csv zones.csv --json --daemon nats://127.0.0.1:4222"})
final class RequestCommand extends Action {
    @Parameters(index = "0", paramLabel = "SUBJECT", description = "where to send; no wildcards")
    String subject;

    @Parameters(index = "1..*", arity = "0..*", paramLabel = "FIELD",
            description = "name:type=value; {n} in a value is the request's number, from 1")
    List<String> arguments = List.of();

    @Mixin
    SourceOptions source;

    @Option(names = "--json-file", paramLabel = "FILE",
            description = "a request for each line of JSON, as 'quorl listen --json' prints them; - is standard input")
    String jsonFile;

    @Option(names = "--timeout", paramLabel = "SECONDS", defaultValue = "5",
            description = "how long to wait for each reply (${DEFAULT-VALUE})")
    double timeout;

    @Option(names = "--json", description = "print the reply as a JSON object in one line, with the types of its fields")
    boolean json;

    @ParentCommand
    Object parent;

    @Override
    void check() {
        checkSendable(subject);
        checkAtLeast("--timeout", timeout, 0);
        source.check(this, subject, fields(arguments), jsonFile, parent instanceof Main main ? main.in : null);
    }

    @Override
    String aloneOnTheBus() {
        return "nobody in another process can answer this request.";
    }

    @Override
    void begin(Session session) throws InterruptedException {
        source.forEach(request -> {
            try (QuorlMsg reply = session.request(transport, request, timeout)) {
                if (reply == null) {
                    throw new Failure("request " + subject + ": no reply within " + Texts.number(timeout) + " s");
                }
                session.print(Messages.fieldsLine(reply, json));
            }
        });
    }

    @Override
    String progress() {
        return Texts.were(source.done(), "request") + " answered";
    }
}
