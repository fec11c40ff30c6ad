package com.vesma.quorl.cli;

import com.vesma.quorl.Quorl;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Locale;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;
import picocli.CommandLine.Command;
import picocli.CommandLine.Option;

/** quorl demo: publishes this machine's counters, listens to them and shows them live. */
@Command(name = "demo", description = {"Publishes this machine's counters ten times a second as typed messages and shows what "
        + "a listener hears.", "Ends with a count of what was sent and received; a message lost makes the exit code 1."},
        footer = {"", "Examples:", "  quorl demo", "  quorl demo --timeout 5 --stats"})
final class DemoCommand extends Action {
    private static final double SAMPLES_PER_SECOND = 10;
    private static final double FRAMES_PER_SECOND = 5;
    /** What the table leaves of the terminal's height for its title, its count and the prompt. */
    private static final int OTHER_LINES = 5;
    /** How long the listener may take for what was sent last. */
    private static final double DRAIN_SECONDS = 10;

    @Option(names = {"--timeout", "--seconds"}, paramLabel = "SECONDS", defaultValue = "15",
            description = "end after that time (${DEFAULT-VALUE})")
    double seconds;

    @Option(names = "--stats", description = "print at the end what the library has counted")
    boolean stats;

    @Option(names = "--proc", paramLabel = "FOLDER", defaultValue = "/proc", hidden = true)
    Path proc;

    private final SequenceCheck check = new SequenceCheck();
    private final MachineTable table = new MachineTable();
    private final CountDownLatch stopped = new CountDownLatch(1);
    private volatile RuntimeException publisherFailure;

    @Override
    void check() {
        if (!(seconds > 0 && seconds < 1e6)) throw usage(Arguments.given(spec, "--seconds", "--timeout") + " takes a number above 0, not " + Texts.number(seconds));
    }

    @Override
    String aloneOnTheBus() {
        return null;
    }

    @Override
    void begin(Session session) throws InterruptedException {
        ProcReader reader = new ProcReader(proc);
        MachineListener listener = new MachineListener(check, table);
        session.listen(transport, List.of("machine.>"), null, listener::received);
        MachinePublisher publisher = new MachinePublisher(reader, session.transport(transport));
        // An interrupt from the keyboard ends the demo early, with its summary.
        CountDownLatch done = new CountDownLatch(1);
        Thread interrupted = new Thread(() -> {
            stopped.countDown();
            awaitQuietly(done);
        });
        Runtime.getRuntime().addShutdownHook(interrupted);
        try {
            long start = System.nanoTime();
            Thread publishing = new Thread(() -> publish(publisher, start), "quorl-publish");
            publishing.start();
            show(reader.hostName(), publishing, start);
            publishing.join();
            double elapsed = (System.nanoTime() - start) / 1e9;
            if (publisherFailure != null) throw publisherFailure;
            session.flush();
            check.awaitReceived(publisher.sent(), DRAIN_SECONDS);
            DemoResult result = new DemoResult(publisher.sent(), check.received(), check.outOfOrder(), check.duplicates());
            if (stats) StatisticsText.lines(Quorl.statistics(), null, 0).forEach(out()::println);
            out().println(result.summary(elapsed));
            out().flush();
            if (!session.isEmbedded(transport)) session.confirm(publisher.sent());
            String complaint = result.complaint();
            if (complaint != null) throw new Failure(complaint);
        } finally {
            done.countDown();
            removeHook(interrupted);
        }
    }

    /** Samples at fixed points in time until the time is over; the publishing thread. */
    private void publish(MachinePublisher publisher, long start) {
        try {
            long samples = Math.max(1, Math.round(seconds * SAMPLES_PER_SECOND));
            for (long sample = 0; sample < samples; sample++) {
                publisher.publish();
                long next = start + (long) ((sample + 1) / SAMPLES_PER_SECOND * 1e9);
                if (stopped.await(next - System.nanoTime(), TimeUnit.NANOSECONDS)) return;
            }
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        } catch (RuntimeException e) {
            publisherFailure = e;
        }
    }

    /** Shows the table until the publisher has ended. */
    private void show(String host, Thread publishing, long start) throws InterruptedException {
        if (!Screen.isTerminal()) {
            showLines(publishing, start);
            return;
        }
        int rows = Math.max(1, Screen.height() - OTHER_LINES);
        try (Screen screen = new Screen(out())) {
            boolean running = true;
            while (running) {
                publishing.join((long) (1000 / FRAMES_PER_SECOND));
                running = publishing.isAlive();
                List<String> lines = new ArrayList<>();
                lines.add(format("machine.%s   %.1f of %s s", Subjects.element(host), elapsed(start), Texts.number(seconds)));
                lines.addAll(table.lines(rows));
                lines.add(counts());
                screen.draw(lines);
            }
        }
    }

    private void showLines(Thread publishing, long start) throws InterruptedException {
        for (int second = 1; publishing.isAlive(); second++) {
            long left = start + second * 1_000_000_000L - System.nanoTime();
            publishing.join(Math.max(1, left / 1_000_000));
            if (System.nanoTime() - start < second * 1_000_000_000L && publishing.isAlive()) {
                second--;
                continue;
            }
            out().println(format("%4.1f s  %s  %s", elapsed(start), table.summary(), counts()));
            out().flush();
        }
    }

    private String counts() {
        return format("%d messages on %d subjects, %d lost, %d out of order", check.received(), check.subjects(),
                check.missing(), check.outOfOrder());
    }

    private static double elapsed(long start) {
        return (System.nanoTime() - start) / 1e9;
    }

    private static String format(String pattern, Object... values) {
        return String.format(Locale.ROOT, pattern, values);
    }

    private static void awaitQuietly(CountDownLatch latch) {
        try {
            latch.await(2, TimeUnit.SECONDS);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    private static void removeHook(Thread hook) {
        try {
            Runtime.getRuntime().removeShutdownHook(hook);
        } catch (IllegalStateException e) {
            // The machine is ending already, and runs the hook.
            return;
        }
    }
}
