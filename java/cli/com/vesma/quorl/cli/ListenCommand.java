package com.vesma.quorl.cli;

import picocli.CommandLine.Command;
import picocli.CommandLine.Option;

/** quorl listen: prints the messages on subjects. */
@Command(name = "listen", description = "Prints the messages on subjects as they come.",
        footer = {"", "Examples:", "  quorl listen 'plant.*.temp' 'plant.alarm.>' --daemon nats://127.0.0.1:4222",
                "  quorl listen 'plant.>' --json --daemon nats://127.0.0.1:4222 > recorded.json",
                "  quorl listen 'plant.>' --csv recorded.csv --daemon nats://127.0.0.1:4222"})
final class ListenCommand extends ListeningAction {
    @Option(names = "--share", paramLabel = "NAME",
            description = "of those that share the name, one gets each message; what waits for one that ends is lost")
    String share;

    @Override
    void checkSubject(String subject) {
        checkListenable(subject, share);
    }

    @Override
    Session.Counter listen(Session session) throws InterruptedException {
        return session.listen(transport, share, subjects, count, message -> output.print(session, message));
    }
}
