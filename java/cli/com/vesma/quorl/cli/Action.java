package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlMsg;
import java.io.PrintWriter;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Callable;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.Spec;

/**
 * A command that uses a bus: by itself, or as one line of a script that shares a session with the other lines.
 */
abstract class Action implements Callable<Integer> {
    @Spec
    CommandSpec spec;

    @Mixin
    TransportOptions transport;

    @Option(names = {"-h", "--help"}, usageHelp = true, description = "show this help")
    boolean help;

    /** Looks at the arguments; throws ParameterException for what is wrong with them. Runs before anything is opened. */
    abstract void check();

    /** Does the work, or starts what stays active until the session closes. */
    abstract void begin(Session session) throws InterruptedException;

    /** Waits for what begin started; called when the command runs by itself and at the end of a script. */
    void finish(Session session, boolean alone) throws InterruptedException {}

    /** What this command cannot do when it is alone on the bus of its own process; null when there is no need to warn. */
    abstract String aloneOnTheBus();

    /** Whether 'quorl run' takes it too. */
    boolean inScripts() {
        return true;
    }

    /** Seconds more than usual that its end may take when it is interrupted. */
    double patience() {
        return 0;
    }

    /** The exit code of one that has worked. */
    int code() {
        return Main.OK;
    }

    /** How far it is, for whoever interrupts it; null when there is nothing to say. */
    String progress() {
        return null;
    }

    /** How many messages it has sent that nobody has answered; for whoever interrupts it. */
    long sentSoFar() {
        return 0;
    }

    @Override
    public Integer call() throws InterruptedException {
        check();
        checkTransport();
        try (Interruption interruption = new Interruption(patience())) {
            try {
                work(interruption);
            } catch (InterruptedException | RuntimeException e) {
                if (!interruption.requested()) throw e;
                // The exit code is the signal's whatever this returns.
                if (e instanceof RuntimeException failure) err().println("quorl: " + Main.describe(failure));
                out().flush();
                err().flush();
            }
        }
        return code();
    }

    private void work(Interruption interruption) throws InterruptedException {
        try (Session session = new Session(out(), err())) {
            String warning = aloneOnTheBus();
            if (warning != null && session.isEmbedded(transport)) {
                err().println("quorl: warning: without --daemon ADDRESS the bus is this process's own: " + warning
                        + "\nquorl: 'quorl daemon' runs a daemon" + (inScripts() ? "; 'quorl run' puts several commands into one process." : "."));
                err().flush();
            }
            try {
                begin(session);
                finish(session, true);
            } catch (InterruptedException e) {
                if (!interruption.requested()) throw e;
                tellProgress(session);
            }
        }
    }

    /** Says how far it came, and claims no message that the daemon has not confirmed. */
    private void tellProgress(Session session) throws InterruptedException {
        if (progress() == null) return;
        long sent = sentSoFar();
        String confirmed = "";
        if (sent != 0 && !session.isEmbedded(transport)) {
            String doubt = doubt(session, true);
            confirmed = doubt != null ? "; " + doubt : ", and the daemon has confirmed " + (sent == 1 ? "it" : "all of them");
        }
        synchronized (err()) {
            err().println("quorl: interrupted; " + progress() + confirmed);
            err().flush();
        }
    }

    /** Says that it serves from now on, for whoever started it and waits for that; over a daemon, where others can be. */
    void tellReady(Session session, String what) {
        if (!session.isEmbedded(transport)) tell(what);
    }

    /** Says something beside what is printed. */
    void tell(String what) {
        synchronized (err()) {
            err().println("quorl: " + what);
            err().flush();
        }
    }

    /** Why not all that was sent has arrived for certain; null when it has. */
    String doubt(Session session, boolean soon) throws InterruptedException {
        try {
            if (soon) {
                session.confirmSoon(sentSoFar());
            } else {
                session.confirm(sentSoFar());
            }
            return null;
        } catch (Failure | QuorlException e) {
            return e.getMessage();
        }
    }

    PrintWriter out() {
        return spec.commandLine().getOut();
    }

    PrintWriter err() {
        return spec.commandLine().getErr();
    }

    /** Looks at the form of the daemon's address, as check does at other arguments. */
    final void checkTransport() {
        if (transport.daemon == null || transport.daemon.isEmpty()) return;
        try {
            DaemonAddress.parse(transport.daemon);
        } catch (Failure e) {
            throw usage("--daemon: " + e.getMessage());
        }
    }

    ParameterException usage(String message) {
        return new ParameterException(spec.commandLine(), message);
    }

    /** A distributed queue's name is a certified name. */
    void checkQueue(String name) {
        String why = Subjects.whyNotSendable(name);
        if (why == null && name.startsWith("_")) why = "what starts with \"_\" belongs to the system";
        if (why == null && name.getBytes(StandardCharsets.UTF_8).length > 200) why = "a name has at most 200 bytes";
        if (why != null) throw usage("queue \"" + name + "\": " + why);
    }

    void checkSendable(String subject) {
        String why = Subjects.whyNotSendable(subject);
        if (why != null) throw usage("subject \"" + subject + "\": " + why);
    }

    void checkListenable(String subject) {
        String why = Subjects.whyNotListenable(subject);
        if (why != null) throw usage("subject \"" + subject + "\": " + why);
    }

    /** The same of what is shared under a name; null: it is not. */
    void checkListenable(String subject, String share) {
        checkListenable(subject);
        if (share == null) return;
        String why = Subjects.whyNotShareName(share);
        if (why != null) throw usage("--share " + Texts.quoted(share) + ": " + why);
        if (subject.startsWith("_")) throw usage("subject \"" + subject + "\": what starts with \"_\" cannot be shared");
    }

    /** Fields from arguments; every value is looked at, so that a bad one is found before the first message goes out. */
    List<FieldArgument> fields(List<String> arguments) {
        List<FieldArgument> fields = new ArrayList<>();
        for (String argument : arguments) {
            try {
                FieldArgument field = FieldArgument.parse(argument);
                fields.add(field);
            } catch (IllegalArgumentException e) {
                throw usage(e.getMessage());
            }
        }
        checkFields(fields, 1);
        return fields;
    }

    /** Looks at the values of the n-th message's fields. */
    void checkFields(List<FieldArgument> fields, long n) {
        try (QuorlMsg message = new QuorlMsg()) {
            Messages.add(message, fields, n);
        } catch (IllegalArgumentException e) {
            throw usage(e.getMessage());
        } catch (QuorlException e) {
            throw usage(e.getDetail() == null ? e.getMessage() : e.getDetail());
        }
    }

    void checkAtLeast(String option, double value, double least) {
        if (!(value >= least) || Double.isInfinite(value)) {
            throw usage(option + " takes a number of at least " + Texts.number(least) + ", not " + Texts.number(value));
        }
    }
}
