package com.vesma.quorl.cli;

import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlCmListener;
import com.vesma.quorl.QuorlCmTransport;
import com.vesma.quorl.QuorlDispatcher;
import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlFtMember;
import com.vesma.quorl.QuorlFtMonitor;
import com.vesma.quorl.QuorlListener;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlQrdTransport;
import com.vesma.quorl.QuorlQueue;
import com.vesma.quorl.QuorlStatistics;
import com.vesma.quorl.QuorlTimer;
import com.vesma.quorl.QuorlTransport;
import java.io.IOException;
import java.io.PrintWriter;
import java.io.Writer;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.time.Duration;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashSet;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.function.Consumer;
import java.util.function.IntConsumer;

/**
 * What the commands of one process share: the open library, a transport for each bus that they name, and one queue with
 * one dispatching thread, so that everything received is handled one after the other, in order.
 */
final class Session implements AutoCloseable {
    /** Seconds that the end of a script waits for a listener with a count when the script does not say. */
    static final double PATIENCE = 10;

    /** Seconds that flush gives a daemon to bring a message back. */
    private static final double DAEMON_PATIENCE = 5;

    /** The same, for a command that was interrupted. */
    private static final double LAST_PATIENCE = 2;

    /** A transport with the way to see that all it has sent to this process was handled. */
    private final class Port {
        final boolean embedded;
        final QuorlQrdTransport transport;
        final String inbox;
        final QuorlListener marker;
        long sent;
        long returned;

        Port(TransportOptions options) {
            embedded = isEmbedded(options);
            if (!embedded && watch == null) watch = new DaemonWatch(Session.this::told);
            transport = create(options);
            inbox = embedded ? null : transport.createInbox();
            marker = embedded ? null : new QuorlListener(queue, transport, inbox, (listener, message) -> hasReturned());
        }

        void hasReturned() {
            synchronized (Session.this) {
                returned++;
                Session.this.notifyAll();
            }
        }
    }

    /** A table that is written, with the messages' columns. Guarded by out. */
    private static final class Table {
        final CsvTable columns = new CsvTable();
        /** Null for standard output. */
        final Writer file;

        Table(Writer file) {
            this.file = file;
        }
    }

    private final PrintWriter out;
    private final PrintWriter err;
    private final Map<String, Table> tables = new LinkedHashMap<>();
    private final Quorl library;
    private final QuorlQueue queue;
    private final QuorlDispatcher dispatcher;
    private final Map<List<String>, Port> ports = new LinkedHashMap<>();

    /** In the order in which they were opened. */
    private final List<QuorlCmTransport> certified = new ArrayList<>();

    /** What commands end before anything else closes. */
    private final List<Runnable> endings = new ArrayList<>();

    /** Their listeners that end their agreements when this closes. */
    private final List<QuorlCmListener> cancelled = new ArrayList<>();

    /** Queues of members; their dispatchers end with them. */
    private final List<QuorlQueue> members = new ArrayList<>();

    /** Hears what the library tells of daemons; null while none is used. */
    private DaemonWatch watch;

    /** The first failure of a handler; whoever waits next reports it. Guarded by this. */
    private Throwable failure;

    /** Messages that may have been lost with a daemon's connection. Guarded by this. */
    private long unconfirmed;

    /** Certified names of this process that others have. Guarded by this. */
    private final Set<String> takenNames = new HashSet<>();

    /** A daemon has refused something. Guarded by this. */
    private boolean refused;

    /** Daemons' words that stand in an advisory that was printed. Guarded by this. */
    private final Set<String> toldReasons = new HashSet<>();

    /** Daemons' words that stand in a failure. Guarded by this. */
    private final Set<String> failedReasons = new HashSet<>();

    /** Whether a failure has said that messages may be lost, so that what the close drops is no news. Guarded by this. */
    private boolean doubted;

    /** err: for what happens to daemons meanwhile. */
    Session(PrintWriter out, PrintWriter err) {
        this.out = out;
        this.err = err;
        library = Quorl.open();
        queue = new QuorlQueue("quorl command");
        dispatcher = new QuorlDispatcher(queue, "quorl-listen");
        dispatcher.getThread().setUncaughtExceptionHandler((thread, thrown) -> fail(thrown));
    }

    /** Whether these options mean the bus inside this process. */
    boolean isEmbedded(TransportOptions options) {
        return options.daemon == null ? Quorl.isInProcess() : options.daemon.isEmpty();
    }

    private QuorlQrdTransport create(TransportOptions options) {
        try {
            Credentials.use(options);
            warn(options);
            return new QuorlQrdTransport(options.service, options.network, options.daemon);
        } catch (QuorlException e) {
            throw new Failure(options + ": " + e.getMessage());
        }
    }

    private void warn(TransportOptions options) {
        synchronized (err) {
            for (DoctorCommand.Finding exposed : Certificates.exposed(options)) {
                err.println("quorl: warning: " + exposed.text() + "; " + exposed.advice());
            }
            err.flush();
        }
    }

    QuorlTransport transport(TransportOptions options) {
        return port(options).transport;
    }

    private Port port(TransportOptions options) {
        return ports.computeIfAbsent(Arrays.asList(options.daemon, options.service, options.network),
                key -> new Port(options));
    }

    /** Tells what the library tells. */
    private void told(QuorlMsg advisory) {
        String subject = advisory.getSendSubject();
        synchronized (this) {
            if (subject.endsWith(".daemon.lost") && advisory.has("unconfirmed")) unconfirmed += advisory.getU64("unconfirmed");
            if (subject.endsWith(".daemon.refused")) {
                refused = true;
                notifyAll();
                // Each of the two says the daemon's words unless the other has.
                if (failedReasons.contains(advisory.getString("reason"))) return;
                toldReasons.add(advisory.getString("reason"));
            }
            if (subject.endsWith(".daemon.dropped") && doubted) return;
            if (subject.endsWith(".certified.name_taken")) takenNames.add(advisory.getString("name"));
            if (subject.endsWith(".certified.name_free")) takenNames.remove(advisory.getString("name"));
        }
        String server = subject.endsWith(".daemon.back") ? serverOf(advisory) : "";
        String text = CertifiedAdvisoryText.isAbout(subject) ? CertifiedAdvisoryText.of(advisory)
                : FtAdvisoryText.isAbout(subject) ? FtAdvisoryText.of(advisory)
                : DqueueAdvisoryText.isAbout(subject) ? DqueueAdvisoryText.of(advisory) : AdvisoryText.of(advisory, server);
        if (text == null) return;
        synchronized (err) {
            err.println("quorl: " + text);
            err.flush();
        }
    }

    /** The server that a connection uses, of an address with several; "" when there is one, or it is not known. */
    private static String serverOf(QuorlMsg advisory) {
        String daemon = advisory.getString("daemon");
        for (QuorlStatistics.Daemon each : Quorl.statistics().daemons()) {
            if (each.daemon().equals(daemon) && each.phase().equals("connected") && !each.server().equals(daemon)) return each.server();
        }
        return "";
    }

    /**
     * Waits until the daemons have everything that was sent; Failure when they have not, have refused something, or may have
     * lost some of it.
     *
     * @param sent how many messages were
     */
    void confirm(long sent) throws InterruptedException {
        confirm(sent, DAEMON_PATIENCE);
    }

    /** The same, when there is no time left. */
    void confirmSoon(long sent) throws InterruptedException {
        confirm(sent, LAST_PATIENCE);
    }

    private void confirm(long sent, double seconds) throws InterruptedException {
        boolean arrived = flush(seconds);
        checkRefusals();
        long lost;
        synchronized (this) {
            lost = Math.min(unconfirmed, sent);
        }
        if (!arrived) {
            throw doubt("the daemon did not confirm within " + Texts.number(seconds) + " s that it has "
                    + (sent == 1 ? "the message; it may be lost" : "all " + sent + " messages; some may be lost"));
        }
        if (lost > 0) {
            throw doubt("up to " + lost + " of " + sent + " messages may be lost, with the connection to the daemon");
        }
    }

    private synchronized Failure doubt(String text) {
        doubted = true;
        return new Failure(text);
    }

    /** Whether the daemon's words were printed; when they were not, they count as printed from now on. */
    private synchronized boolean wasTold(String reason) {
        return toldReasons.contains(reason) || !failedReasons.add(reason);
    }

    /** Failure when a daemon has refused a message or a subscription of this session. */
    void checkRefusals() {
        for (QuorlStatistics.Daemon daemon : Quorl.statistics().daemons()) {
            if (daemon.refused() == 0 || daemon.phase().equals("ended") || daemon.phase().equals("failed")) continue;
            throw new Failure(daemon.daemon() + " refused " + (daemon.refused() == 1 ? "it" : daemon.refused() + " times")
                    + (wasTold(daemon.reason()) ? "" : " (" + daemon.reason() + ")") + "; " + (daemon.reason().contains("maximum subscriptions")
                            ? "raise max_subscriptions in the server's configuration"
                            : "the user needs that permission in the server's configuration, and 'quorl doctor' looks further"));
        }
    }

    /** After a command has begun to listen: Failure when a daemon does not let it. */
    void checkListening() throws InterruptedException {
        if (ports.values().stream().allMatch(port -> port.embedded)) return;
        flush();
        checkRefusals();
    }

    /** Failure when a line of a script has sent what a daemon does not have. */
    void settle() throws InterruptedException {
        if (!flush()) {
            checkRefusals();
            throw doubt("the daemon did not bring a message back within " + Texts.number(DAEMON_PATIENCE)
                    + " s; what was sent may be lost");
        }
        if (ports.values().stream().allMatch(port -> port.embedded)) return;
        checkRefusals();
        synchronized (this) {
            if (unconfirmed == 0) return;
            throw doubt("up to " + unconfirmed + " messages may be lost, with the connection to the daemon");
        }
    }

    /** How many messages a listener has taken, and a wait for them. */
    final class Counter {
        private final Long most;
        private long taken;
        private long handled;

        private Counter(Long most) {
            this.most = most;
        }

        /** Messages taken, the one in the handler included. */
        long count() {
            synchronized (Session.this) {
                return taken;
            }
        }

        /** Counts one more; false when there have been enough. */
        private boolean take() {
            synchronized (Session.this) {
                if (most != null && taken == most) return false;
                taken++;
                return true;
            }
        }

        private void done() {
            synchronized (Session.this) {
                handled++;
                if (most != null && handled == most) Session.this.notifyAll();
            }
        }

        /** Waits until the listener has what it wants, for ever when seconds is null; whether it has. */
        boolean await(Double seconds) throws InterruptedException {
            return Session.this.await(() -> most != null && handled == most, seconds);
        }
    }

    /** Listens until the session closes, or until so many messages were handled when most is not null. */
    Counter listen(TransportOptions options, List<String> subjects, Long most, Consumer<QuorlMsg> handler) {
        return listen(options, null, subjects, most, handler);
    }

    /** The same, sharing the messages with others of that name when share is not null. */
    Counter listen(TransportOptions options, String share, List<String> subjects, Long most, Consumer<QuorlMsg> handler) {
        QuorlTransport transport = transport(options);
        Counter counter = new Counter(most);
        QuorlListener.Handler counting = (listener, message) -> {
            if (!counter.take()) {
                listener.close();
                return;
            }
            handler.accept(message);
            counter.done();
        };
        for (String subject : subjects) {
            if (share == null) {
                new QuorlListener(queue, transport, subject, counting);
            } else {
                QuorlListener.shared(share, queue, transport, subject, counting);
            }
        }
        return counter;
    }

    /** Certified delivery under a name, until the session closes. old: whether what was kept for the name before is asked for. */
    QuorlCmTransport certified(TransportOptions options, CertifiedOptions name, boolean old) {
        QuorlTransport transport = transport(options);
        try {
            QuorlCmTransport opened = name.open(transport, old);
            certified.add(opened);
            return opened;
        } catch (QuorlException e) {
            throw new Failure((name.ledger == null ? "" : name.ledger + ": ") + e.getMessage());
        }
    }

    /** Why nothing was done under a certified name, as far as it is known; null when it is this process's. */
    String whyNothingDone(String name) throws InterruptedException {
        // What the library has told before is heard now.
        flush();
        synchronized (this) {
            return takenNames.contains(name) ? "another program, or a relay agent that stands in for it, has the name " + name : null;
        }
    }

    /** Has this told of what certified senders of this process give up, until the session closes. */
    void hearUndelivered(Consumer<QuorlMsg> use) {
        // Advisories are on the bus of the process, whatever the daemon.
        new QuorlListener(queue, new QuorlQrdTransport(null, null, ""), "_QUORL.ERROR.certified.undelivered",
                (listener, advisory) -> use.accept(advisory));
    }

    /** As {@link #listen}, for certified messages, each confirmed when it was handled. */
    Counter listenCertified(TransportOptions options, CertifiedOptions name, boolean old, boolean cancel, List<String> subjects,
            Long most, Consumer<QuorlMsg> handler) {
        QuorlCmTransport through = certified(options, name, old);
        Counter counter = new Counter(most);
        for (String subject : subjects) {
            QuorlCmListener listener = new QuorlCmListener(queue, through, subject, QuorlCmListener.Confirmation.EXPLICIT, (l, message) -> {
                if (!counter.take()) {
                    // Not confirmed: it is for the next who listens.
                    l.close(cancel);
                    return;
                }
                handler.accept(message);
                l.confirm(message);
                counter.done();
            });
            if (cancel) cancelled.add(listener);
        }
        return counter;
    }

    /** A member of a group, told by a thread that does nothing else; whoever joins it closes it. */
    QuorlFtMember.Builder member(TransportOptions options, String group) {
        QuorlTransport transport = transport(options);
        QuorlQueue own = new QuorlQueue("quorl member");
        members.add(own);
        QuorlDispatcher.builder(own).name("quorl-member").uncaughtExceptionHandler((thread, thrown) -> fail(thrown)).start();
        return QuorlFtMember.builder(own, transport, group);
    }

    /** Watches a group until the session closes: told is given what its members do, and count how many are active. */
    void monitor(TransportOptions options, String group, Duration lostInterval, Consumer<QuorlMsg> told, IntConsumer count) {
        QuorlTransport transport = transport(options);
        new QuorlListener(queue, transport, "_QUORL.*.ft.*", (listener, message) -> told.accept(message));
        new QuorlFtMonitor(queue, transport, group, lostInterval, (monitor, active) -> count.accept(active));
    }

    /** Waits until that much time has passed, for ever when seconds is null; reports the failure of a handler. */
    void pause(Double seconds) throws InterruptedException {
        await(() -> false, seconds);
    }

    void send(TransportOptions options, QuorlMsg message) {
        transport(options).send(message);
    }

    /** The first reply, to be closed; null when none came in time. */
    QuorlMsg request(TransportOptions options, QuorlMsg request, double seconds) throws InterruptedException {
        QuorlMsg reply = transport(options).request(request, Duration.ofNanos((long) (seconds * 1e9)));
        if (reply == null && !isEmbedded(options)) checkRefusals();
        return reply;
    }

    void reply(TransportOptions options, QuorlMsg reply, QuorlMsg request) {
        transport(options).reply(reply, request);
    }

    /** Answers requests for this process's statistics until the session closes. */
    void answerStatistics(TransportOptions options, String subject) {
        QuorlStatistics.answer(queue, transport(options), subject);
    }

    /** Prints one line. Called by the dispatching thread and by the main one. */
    void print(String line) {
        synchronized (out) {
            out.println(line);
            if (out.checkError()) throw new OutputClosed();
        }
    }

    /** Opens a file for a table, or "-" for standard output; a second time it is the same table. */
    void openTable(String name) {
        synchronized (out) {
            tables.computeIfAbsent(name, key -> {
                try {
                    return new Table(name.equals("-") ? null : Files.newBufferedWriter(Path.of(name)));
                } catch (IOException e) {
                    throw unwritable(name, e);
                }
            });
        }
    }

    /** Adds a message to a table that is open. Each record is written at once, so that one that was printed is kept. */
    void record(String name, QuorlMsg message) {
        synchronized (out) {
            Table table = tables.get(name);
            String lines = table.columns.lines(message);
            if (table.file == null) {
                print(lines);
                return;
            }
            try {
                table.file.write(lines);
                table.file.write('\n');
                table.file.flush();
            } catch (IOException e) {
                throw unwritable(name, e);
            }
        }
    }

    private static Failure unwritable(String name, IOException e) {
        return new Failure("cannot write " + Texts.quoted(name) + ": "
                + (e instanceof NoSuchFileException ? "there is no such folder" : TextSource.why(e)));
    }

    /**
     * Waits until this process has handled what it has sent to itself: what comes last into the queue is handled last. That is a
     * timer on the bus of the process, and a message to an inbox of its own over a daemon. Reports the failure of a handler.
     *
     * @return false when a daemon has not brought the message back in time
     */
    boolean flush() throws InterruptedException {
        return flush(DAEMON_PATIENCE);
    }

    private boolean flush(double seconds) throws InterruptedException {
        boolean all = true;
        for (Port port : ports.values()) {
            synchronized (this) {
                port.sent++;
            }
            if (port.embedded) {
                new QuorlTimer(queue, Duration.ZERO, timer -> {
                    timer.close();
                    port.hasReturned();
                });
            } else {
                try (QuorlMsg mark = new QuorlMsg(port.inbox)) {
                    port.transport.send(mark);
                }
            }
            await(() -> port.returned >= port.sent || (refused && !port.embedded), port.embedded ? null : Double.valueOf(seconds));
            synchronized (this) {
                all &= port.returned >= port.sent;
            }
        }
        return all;
    }

    private interface Condition {
        boolean holds();
    }

    private synchronized boolean await(Condition condition, Double seconds) throws InterruptedException {
        long end = System.nanoTime() + (long) ((seconds == null ? 0 : seconds) * 1e9);
        while (!condition.holds()) {
            report();
            if (seconds == null) {
                wait();
                continue;
            }
            long left = end - System.nanoTime();
            if (left <= 0) return false;
            wait(left / 1_000_000 + 1);
        }
        report();
        return true;
    }

    private void report() {
        if (failure instanceof RuntimeException exception) throw exception;
        if (failure != null) throw new IllegalStateException(failure);
    }

    private synchronized void fail(Throwable thrown) {
        if (failure == null) failure = thrown;
        notifyAll();
    }

    /** Runs it when the session closes, while everything still works; what came last first. */
    void atEnd(Runnable ending) {
        endings.add(0, ending);
    }

    @Override
    public void close() {
        endings.forEach(Runnable::run);
        dispatcher.close();
        for (QuorlQueue each : members) each.close();
        for (QuorlCmListener listener : cancelled) listener.close(true);
        for (QuorlCmTransport each : certified) each.close();
        // The last one of a daemon waits for what is on its way, and the watch hears what is dropped.
        for (Port port : ports.values()) port.transport.close();
        if (watch != null) watch.close();
        queue.close();
        closeTables();
        try {
            library.close();
        } catch (QuorlException e) {
            if (e.getStatus() != QuorlException.DAEMON_NOT_CONNECTED) throw e;
            synchronized (this) {
                if (doubted) return;
            }
            throw new Failure("not everything that was sent has reached the daemon");
        }
    }

    private void closeTables() {
        synchronized (out) {
            for (Table table : tables.values()) {
                try {
                    if (table.file != null) table.file.close();
                } catch (IOException e) {
                    // Whoever wrote the last record was told.
                }
            }
        }
    }
}
