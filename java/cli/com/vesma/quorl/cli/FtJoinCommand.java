package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlFtMember;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.Stack;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import picocli.CommandLine.Command;
import picocli.CommandLine.IParameterConsumer;
import picocli.CommandLine.Model.ArgSpec;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.Parameters;

/** quorl ft join: a member of a group, which prints what it is to do, or runs a program while it is to act. */
@Command(name = "join", description = {"Joins a group and prints what it is told: prepare, activate with a token, deactivate.",
        "With --exec it runs a program while it is active instead, so that any program has a standby: it starts the program on "
                + "activation, with the token in the environment variable QUORL_FT_TOKEN and the group in QUORL_FT_GROUP, and ends "
                + "it on deactivation.",
        "When the program ends by itself the command leaves the group, so that the next member takes over, and its exit code is "
                + "the program's."},
        footer = {"", "Examples:", "  quorl ft join plant.archive --weight 2 --daemon nats://127.0.0.1:4222",
                "  quorl ft join plant.archive --daemon nats://127.0.0.1:4222 --grace 1 --exec archive --into /srv/archive"})
final class FtJoinCommand extends Action {
    /** Takes all that follows, options of the program's included. */
    static final class Everything implements IParameterConsumer {
        @Override
        public void consumeParameters(Stack<String> left, ArgSpec option, CommandSpec command) {
            List<String> words = new ArrayList<>();
            while (!left.isEmpty()) words.add(left.pop());
            if (words.isEmpty()) throw new ParameterException(command.commandLine(), "--exec needs a PROGRAM to run");
            option.setValue(words);
        }
    }

    @Parameters(arity = "1", paramLabel = "GROUP", description = "the group's name, a subject without wildcards")
    String group;

    @Option(names = "--weight", paramLabel = "N", defaultValue = "1",
            description = "the rank, 1 to 65535: the highest are active, of equal ones the eldest (${DEFAULT-VALUE})")
    long weight;

    @Option(names = "--goal", paramLabel = "N", defaultValue = "1",
            description = "how many members are to be active; the same for all (${DEFAULT-VALUE})")
    long goal;

    @Option(names = "--heartbeat", paramLabel = "SECONDS", defaultValue = "1",
            description = "time between signs of life (${DEFAULT-VALUE})")
    double heartbeat;

    @Option(names = "--preparation", paramLabel = "SECONDS", defaultValue = "2.5",
            description = "silence after which the next is told to prepare; 0: it is not told (${DEFAULT-VALUE})")
    double preparation;

    @Option(names = "--activation", paramLabel = "SECONDS", defaultValue = "4",
            description = "silence after which the next takes over (${DEFAULT-VALUE})")
    double activation;

    @Option(names = "--timeout", paramLabel = "SECONDS", description = "leave after that time")
    Double timeout;

    @Option(names = "--grace", paramLabel = "SECONDS",
            description = "how long the program may take to end after SIGTERM, before SIGKILL; less than --activation (half of it)")
    Double grace;

    @Option(names = "--json", description = "print each action as a JSON object in one line")
    boolean json;

    @Option(names = "--exec", arity = "1..*", paramLabel = "PROGRAM ARGUMENTS...", hideParamSyntax = true, parameterConsumer = Everything.class,
            description = "run a program while active; comes last, all that follows is the program's. Actions are then printed to "
                    + "standard error")
    List<String> program;

    /** What the thread that dispatches has for the one that works. */
    private record Order(String action, long token, CountDownLatch done) {}

    private final LinkedBlockingQueue<Order> orders = new LinkedBlockingQueue<>();
    private QuorlFtMember member;
    private int code;

    @Override
    void check() {
        checkGroup(this, group);
        checkWithin("--weight", weight);
        checkWithin("--goal", goal);
        checkAtLeast("--heartbeat", heartbeat, 0.001);
        checkAtLeast("--preparation", preparation, 0);
        checkAtLeast("--activation", activation, 0.001);
        if (timeout != null) checkAtLeast("--timeout", timeout, 0);
        if (grace == null) {
            grace = activation / 2;
            return;
        }
        if (program == null) throw usage("--grace is about the program of --exec; there is none");
        checkAtLeast("--grace", grace, 0);
        if (grace >= activation) {
            throw usage("--grace takes less than --activation (" + Texts.number(activation)
                    + "), after which the next member does not wait for the program's end any more");
        }
    }

    private void checkWithin(String option, long value) {
        if (value < 1 || value > 65535) throw usage(option + " takes a number from 1 to 65535, not " + value);
    }

    /** A group's name is a subject in itself. */
    static void checkGroup(Action command, String group) {
        String why = Subjects.whyNotSendable(group);
        if (why != null) throw command.usage("group \"" + group + "\": " + why);
    }

    /** As long as there can be, for what takes the place of a number that no Duration holds. */
    static Duration duration(double seconds) {
        return Duration.ofNanos((long) Math.min(Math.ceil(seconds * 1e9), Long.MAX_VALUE));
    }

    @Override
    String aloneOnTheBus() {
        return "the group has no other member than this one.";
    }

    @Override
    double patience() {
        return grace;
    }

    @Override
    boolean inScripts() {
        return false;
    }

    @Override
    void begin(Session session) throws InterruptedException {
        if (program != null) ProgramFile.check(program.get(0));
        session.atEnd(this::leave);
        try {
            member = session.member(transport, group).weight((int) weight).activeGoal((int) goal)
                    .intervals(duration(heartbeat), duration(preparation), duration(activation))
                    .onPrepareToActivate(m -> order("prepare", 0)).onActivate(m -> order("activate", m.getToken()))
                    .onDeactivate(m -> order("deactivate", m.getToken())).join();
        } catch (QuorlException e) {
            if (e.getStatus() == QuorlException.INVALID_ARG) throw usage(e.getDetail());
            throw e;
        }
        session.checkListening();
    }

    /** Returns when the order is carried out: only then may the next member act. */
    private void order(String action, long token) throws InterruptedException {
        Order order = new Order(action, token, new CountDownLatch(1));
        orders.add(order);
        order.done.await();
    }

    /** The program is this thread's: when that dies with the process, the system ends the program. */
    @Override
    void finish(Session session, boolean alone) throws InterruptedException {
        ActiveProgram running = program == null ? null : new ActiveProgram(program, group, duration(grace), err(), () -> orders.add(
                new Order("ended", 0, new CountDownLatch(1))));
        long end = timeout == null ? Long.MAX_VALUE : System.nanoTime() + duration(timeout).toNanos();
        try {
            tellReady(session, "joined " + group);
            while (running == null || !running.endedByItself()) {
                Order order = timeout == null ? orders.take() : orders.poll(end - System.nanoTime(), TimeUnit.NANOSECONDS);
                if (order == null) return;
                try {
                    carryOut(session, running, order);
                } finally {
                    order.done.countDown();
                }
            }
            code = running.code();
            synchronized (err()) {
                err().println("quorl: " + Texts.quoted(program.get(0)) + " has ended by itself, with exit code " + code + "; leaving " + group);
                err().flush();
            }
        } finally {
            // First the program, then the good-bye.
            if (running != null) running.end();
        }
    }

    /** However far the command came: nobody takes orders any more, and a close waits for the handler of one. */
    private void leave() {
        releaseAll();
        if (member != null) member.close();
    }

    private void releaseAll() {
        Thread release = new Thread(() -> {
            try {
                for (;;) orders.take().done.countDown();
            } catch (InterruptedException e) {
                return;
            }
        }, "quorl-release");
        release.setDaemon(true);
        release.start();
    }

    private void carryOut(Session session, ActiveProgram running, Order order) throws InterruptedException {
        if (order.action.equals("ended")) return;
        String line = line(order);
        if (running == null) {
            session.print(line);
            return;
        }
        synchronized (err()) {
            err().println(line);
            err().flush();
        }
        if (order.action.equals("activate")) running.start(order.token);
        if (order.action.equals("deactivate")) running.end();
    }

    private String line(Order order) {
        // Programs that read JSON keep whole numbers to 53 bits; a token has 64.
        String token = Long.toUnsignedString(order.token);
        boolean activates = order.action.equals("activate");
        if (!json) return order.action + (activates ? ", token " + token : "");
        StringBuilder line = new StringBuilder("{\"group\":");
        Json.string(line, group);
        line.append(",\"action\":\"").append(order.action).append('"');
        if (activates) line.append(",\"token\":\"").append(token).append('"');
        return line.append('}').toString();
    }

    @Override
    int code() {
        return code;
    }
}
