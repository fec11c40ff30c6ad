package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsg;
import java.util.List;
import picocli.CommandLine.Command;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

/** quorl request: sends a message and prints the first reply. */
@Command(name = "request", description = "Sends a request to a subject, waits for the first reply and prints it.",
        footer = {"", "Example:", "  quorl request clock.time zone:string=UTC --timeout 2"})
final class RequestCommand extends Action {
    @Parameters(index = "0", paramLabel = "SUBJECT", description = "where to send; no wildcards")
    String subject;

    @Parameters(index = "1..*", arity = "0..*", paramLabel = "FIELD", description = "name:type=value")
    List<String> arguments = List.of();

    @Option(names = "--timeout", paramLabel = "SECONDS", defaultValue = "5",
            description = "how long to wait for a reply (${DEFAULT-VALUE})")
    double timeout;

    @Option(names = "--json", description = "print the reply as a JSON object in one line, with the types of its fields")
    boolean json;

    private List<FieldArgument> fields;

    @Override
    void check() {
        checkSendable(subject);
        checkAtLeast("--timeout", timeout, 0);
        fields = fields(arguments);
    }

    @Override
    String aloneOnTheBus() {
        return "nobody in another process can answer this request.";
    }

    @Override
    void begin(Session session) throws InterruptedException {
        try (QuorlMsg request = Messages.create(subject, fields, 1);
                QuorlMsg reply = session.request(transport, request, timeout)) {
            if (reply == null) {
                throw new Failure("request " + subject + ": no reply within " + Texts.number(timeout) + " s");
            }
            session.print(Messages.fieldsLine(reply, json));
        }
    }
}
