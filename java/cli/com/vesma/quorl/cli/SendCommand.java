package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsg;
import java.util.List;
import java.util.concurrent.locks.LockSupport;
import picocli.CommandLine.Command;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

/** quorl send: sends one message, or many. */
@Command(name = "send", description = "Sends a message to a subject.",
        footer = {"", "Example:",
                "  quorl send plant.line3.temp celsius:f64=71.5 at:datetime=now note:string='after the break'"})
final class SendCommand extends Action {
    @Parameters(index = "0", paramLabel = "SUBJECT", description = "where to send; no wildcards")
    String subject;

    @Parameters(index = "1..*", arity = "0..*", paramLabel = "FIELD",
            description = "name:type=value; {n} in a value is the message's number, from 1")
    List<String> arguments = List.of();

    @Option(names = {"-n", "--count"}, paramLabel = "N", defaultValue = "1", description = "send N messages (${DEFAULT-VALUE})")
    long count;

    @Option(names = "--rate", paramLabel = "N", description = "send N messages a second; without it, as fast as possible")
    Double rate;

    private List<FieldArgument> fields;

    @Override
    void check() {
        checkSendable(subject);
        checkAtLeast("--count", count, 1);
        if (rate != null && !(rate > 0 && rate < 1e9)) {
            throw usage("--rate takes a number above 0, not " + Texts.number(rate));
        }
        fields = fields(arguments);
        // The last number is the largest: what it fits, the numbers between fit too.
        fields(arguments).forEach(field -> checkValue(field.numbered(count)));
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
        boolean numbered = arguments.stream().anyMatch(argument -> argument.contains("{n}"));
        long start = System.nanoTime();
        QuorlMsg message = Messages.create(subject, fields, 1);
        try {
            for (long n = 1; n <= count; n++) {
                if (rate != null) sleepUntil(start + (long) ((n - 1) / rate * 1e9));
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

    private static void sleepUntil(long nanoTime) throws InterruptedException {
        for (long left = nanoTime - System.nanoTime(); left > 0; left = nanoTime - System.nanoTime()) {
            LockSupport.parkNanos(left);
            if (Thread.interrupted()) throw new InterruptedException();
        }
    }
}
