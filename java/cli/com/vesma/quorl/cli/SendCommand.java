package com.vesma.quorl.cli;

import java.util.List;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;
import picocli.CommandLine.ParentCommand;

/** quorl send: sends one message, or many. */
@Command(name = "send", description = "Sends a message to a subject, or one for each record of a table or line of JSON.",
        footer = {"", "A table's first record names its columns, each name:type; an empty cell leaves the field out.",
                "Tables and JSON that 'quorl listen' wrote name the subjects; a SUBJECT here replaces them.", "",
                "Examples:", "  quorl send plant.line3.temp celsius:f64=71.5 at:datetime=now note:string='after the break'",
                "  quorl send plant.line3.count 'n:u32={n}' --count 20 --rate 10",
                "  quorl send plant.line3.temp --csv measured.csv --daemon nats://127.0.0.1:4222",
                "  quorl send --json-file recorded.json --daemon nats://127.0.0.1:4222"})
final class SendCommand extends Action {
    @Parameters(index = "0", arity = "0..1", paramLabel = "SUBJECT",
            description = "where to send; no wildcards. Not needed when the table or the JSON says it")
    String subject;

    @Parameters(index = "1..*", arity = "0..*", paramLabel = "FIELD",
            description = "name:type=value; {n} in a value is the message's number, from 1")
    List<String> arguments = List.of();

    @Mixin
    SourceOptions source;

    @Option(names = "--json-file", paramLabel = "FILE",
            description = "a message for each line of JSON, as 'quorl listen --json' prints them; - is standard input")
    String json;

    @ParentCommand
    Object parent;

    @Override
    void check() {
        if (subject == null && source.csv == null && json == null) throw usage("Missing required parameter: 'SUBJECT'");
        if (subject != null) checkSendable(subject);
        source.check(this, subject, fields(arguments), json, parent instanceof Main main ? main.in : null);
    }

    @Override
    String aloneOnTheBus() {
        return "nobody in another process can hear this message.";
    }

    @Override
    void begin(Session session) throws InterruptedException {
        try {
            source.forEach(message -> session.send(transport, message));
        } catch (Failure e) {
            String doubt = source.done() == 0 || session.isEmbedded(transport) ? null : doubt(session, false);
            throw doubt == null ? e : new Failure(e.getMessage() + "; " + doubt);
        }
    }

    @Override
    void finish(Session session, boolean alone) throws InterruptedException {
        // What is on its way may still be lost; a message that comes back shows that those before it are at the daemon.
        if (alone && !session.isEmbedded(transport)) session.confirm(source.done());
    }

    @Override
    long sentSoFar() {
        return source.done();
    }

    @Override
    String progress() {
        return Texts.were(source.done(), "message") + " sent";
    }
}
