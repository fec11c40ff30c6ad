package com.vesma.quorl.cli;

import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlCmListener;
import com.vesma.quorl.QuorlCmMsg;
import com.vesma.quorl.QuorlCmTransport;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlQrdTransport;
import com.vesma.quorl.QuorlQueue;
import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.concurrent.Callable;
import picocli.CommandLine.Command;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.Spec;

/** quorl cm demo: a sender and a receiver, each in a process of its own, and the receiver is killed again and again. */
@Command(name = "demo", description = {"Runs a daemon, a sender and a receiver, each in a process of its own, kills the receiver (kill -9) "
        + "and starts it again, and counts what has arrived.", "A message that was lost, or came again after it was confirmed, makes the "
        + "exit code 1."},
        footer = {"", "Examples:", "  quorl cm demo", "  quorl cm demo --timeout 60 --kill-every 2 --rate 1000"})
final class CmDemoCommand implements Callable<Integer> {
    private static final String SUBJECT = "demo.work";
    private static final String SENDER = "demo.sender";
    private static final String RECEIVER = "demo.receiver";

    @Spec
    CommandSpec spec;

    @Option(names = {"-h", "--help"}, usageHelp = true, description = "show this help")
    boolean help;

    @Option(names = {"--timeout", "--seconds"}, paramLabel = "SECONDS", defaultValue = "15",
            description = "how long the sender sends (${DEFAULT-VALUE})")
    double seconds;

    @Option(names = "--kill-every", paramLabel = "SECONDS", defaultValue = "2",
            description = "how often the receiver is killed (${DEFAULT-VALUE})")
    double killEvery;

    @Option(names = "--rate", paramLabel = "N", defaultValue = "100", description = "messages a second (${DEFAULT-VALUE})")
    double rate;

    /** The processes that this starts are told what they are, and where. */
    @Option(names = "--role", hidden = true)
    String role;

    @Option(names = "--folder", hidden = true)
    Path folder;

    @Option(names = "--daemon", hidden = true)
    String daemon;

    @Override
    public Integer call() throws InterruptedException, IOException {
        checkAbove(Arguments.given(spec, "--seconds", "--timeout"), seconds);
        checkAbove("--kill-every", killEvery);
        checkAbove("--rate", rate);
        if (role == null) return new CertifiedDemo(spec.commandLine().getOut(), seconds, killEvery, rate).run() ? Main.OK : Main.FAILED;
        if (role.equals("sender")) {
            send();
        } else {
            receive();
        }
        return Main.OK;
    }

    private void checkAbove(String option, double value) {
        if (!(value > 0 && value < 1e6)) {
            throw new ParameterException(spec.commandLine(), option + " takes a number above 0, not " + Texts.number(value));
        }
    }

    private QuorlCmTransport open(QuorlQrdTransport transport, String name) {
        return QuorlCmTransport.builder(transport).name(name).ledger(folder.resolve(role + ".ledger")).open();
    }

    /** Until its input says that it is enough; then what is kept goes on to be sent until the input ends. */
    @SuppressWarnings("try") // the library is only held open
    private void send() throws InterruptedException, IOException {
        try (Quorl library = Quorl.open(); QuorlQrdTransport transport = new QuorlQrdTransport(null, null, daemon);
                DemoNotes notes = new DemoNotes(folder.resolve("sender.notes")); QuorlCmTransport through = open(transport, SENDER)) {
            through.addListener(RECEIVER, SUBJECT);
            Thread enough = watchInput(Thread.currentThread());
            Pace pace = new Pace(rate);
            try {
                for (int n = 1;; n++) {
                    pace.await();
                    try (QuorlMsg message = new QuorlMsg(SUBJECT).addI32("n", n)) {
                        var told = through.sendTracked(message);
                        long number = QuorlCmMsg.getSequence(message);
                        notes.add("accepted", number);
                        told.thenAccept(delivery -> notes.add("confirmed", number));
                    }
                }
            } catch (InterruptedException e) {
                notes.add("stopped", 0);
            }
            enough.join();
        }
    }

    @SuppressWarnings("try") // the listener too
    private void receive() throws InterruptedException, IOException {
        try (Quorl library = Quorl.open(); QuorlQrdTransport transport = new QuorlQrdTransport(null, null, daemon);
                DemoNotes notes = new DemoNotes(folder.resolve("receiver.notes")); QuorlQueue queue = new QuorlQueue();
                QuorlCmTransport through = open(transport, RECEIVER)) {
            notes.add("started", 0);
            QuorlCmListener.Handler handler = (listener, message) -> {
                long number = QuorlCmMsg.getSequence(message);
                notes.add("delivered", number);
                listener.confirm(message);
                notes.add("done", number);
            };
            try (QuorlCmListener listener = new QuorlCmListener(queue, through, SUBJECT, QuorlCmListener.Confirmation.EXPLICIT, handler)) {
                watchInput(Thread.currentThread());
                for (;;) queue.dispatch();
            }
        } catch (InterruptedException e) {
            // It is enough.
        }
    }

    /** Interrupts a thread when a line comes in, or the process that started this is gone; ends with the input. */
    private static Thread watchInput(Thread thread) {
        Thread watching = new Thread(() -> {
            try (BufferedReader lines = new BufferedReader(new InputStreamReader(System.in, StandardCharsets.UTF_8))) {
                lines.readLine();
                thread.interrupt();
                while (lines.readLine() != null) continue;
            } catch (IOException e) {
                thread.interrupt();
            }
        }, "quorl-demo-input");
        watching.setDaemon(true);
        watching.start();
        return watching;
    }
}
