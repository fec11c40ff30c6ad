package com.vesma.quorl.cli;

import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlCmListener;
import com.vesma.quorl.QuorlCmMsg;
import com.vesma.quorl.QuorlCmQueueTransport;
import com.vesma.quorl.QuorlDispatcher;
import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlQueue;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import picocli.CommandLine.Command;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

/** quorl dq work: runs a program for each task of a distributed queue. */
@Command(name = "work", description = {"Joins a distributed queue and runs a program for each task that it is given.",
        "The program gets the message as a line of JSON on its standard input, and in the environment TASK_SUBJECT, TASK_REPLY and "
                + "TASK_FIELD_name for each field with one value. Exit code 0 completes the task; with any other it goes to another worker.",
        "On Ctrl-C, or a signal that ends the command, it takes no further tasks; programs that run get SIGTERM after --grace seconds, and "
                + "what they have not done goes to other workers."},
        footer = {"", "Examples:", "  quorl dq work crew 'orders.*' ./book --tasks 4 --daemon nats://127.0.0.1:4222",
                "  quorl dq work crew 'orders.*' --complete-time 60 --daemon nats://127.0.0.1:4222 -- sh -c 'echo $TASK_FIELD_number'"})
final class DqWorkCommand extends Action {
    @Parameters(index = "0", paramLabel = "QUEUE", description = "the queue's name")
    String queue;

    @Parameters(index = "1", paramLabel = "SUBJECT",
            description = "whose messages are tasks; * stands for one element, > at the end for one or more")
    String subject;

    @Parameters(index = "2..*", arity = "1..*", paramLabel = "PROGRAM",
            description = "the program and its arguments; behind -- when one begins with a dash")
    List<String> program;

    @Option(names = "--tasks", paramLabel = "N", defaultValue = "1",
            description = "tasks at once, each a program that runs, from 1 to 1000 (${DEFAULT-VALUE})")
    int tasks;

    @Option(names = "--weight", paramLabel = "N", defaultValue = "1", description = "this worker's share of the tasks, from 1 to 1000000 (${DEFAULT-VALUE})")
    int weight;

    @Option(names = "--scheduler-weight", paramLabel = "N", defaultValue = "1",
            description = "how much this member is wanted as the scheduler, from 1 to 65535 (${DEFAULT-VALUE})")
    int schedulerWeight;

    @Option(names = "--heartbeat", paramLabel = "SECONDS", defaultValue = "1",
            description = "between two signs of life of the scheduler, the same for all members (${DEFAULT-VALUE})")
    double heartbeat;

    @Option(names = "--activation", paramLabel = "SECONDS", defaultValue = "3.5",
            description = "of silence after which another member takes over, the same for all (${DEFAULT-VALUE})")
    double activation;

    @Option(names = "--complete-time", paramLabel = "SECONDS",
            description = "within which a task is to be done before another worker gets it; without it, no limit")
    Double completeTime;

    @Option(names = "--reassignments", paramLabel = "N",
            description = "how often a task may be taken from a worker before it is given up, 0 for no limit; the scheduler's holds for all (10)")
    Integer reassignments;

    @Option(names = "--pause", paramLabel = "SECONDS", defaultValue = "1",
            description = "wait so long before a task whose program has failed is given back and the next one begins (${DEFAULT-VALUE})")
    double pause;

    @Option(names = "--grace", paramLabel = "SECONDS", defaultValue = "10",
            description = "how long programs may go on when the command ends, before SIGTERM, and SIGKILL 2 s later (${DEFAULT-VALUE})")
    double grace;

    @Option(names = {"-n", "--count"}, paramLabel = "N", description = "end after N tasks were done")
    Long count;

    @Option(names = "--timeout", paramLabel = "SECONDS",
            description = "end after that time; it is a failure when --count is given and not reached")
    Double timeout;

    @Option(names = "--quiet", description = "do not print what the programs print")
    boolean quiet;

    /** Each has a thread. */
    private static final int MOST_TASKS = 1000;

    /** 30 days, the most that the library takes. */
    private static final double MOST_SECONDS = 2_592_000;

    /** As the library has it. */
    private static final int DEFAULT_REASSIGNMENTS = 10;

    private boolean parametersSet;
    private TaskProgram runs;
    private Session session;

    /** Guarded by this, as all below. */
    private long done;
    private long failed;
    private long unfinished;
    private RuntimeException failure;
    private boolean leaving;

    /** Handlers that run. */
    private int busy;
    private boolean interrupted;

    @Override
    void check() {
        checkQueue(this, queue);
        checkListenable(subject, null);
        checkAtLeast("--tasks", tasks, 1);
        checkAtMost("--tasks", tasks, MOST_TASKS);
        checkAtLeast("--weight", weight, 1);
        checkAtMost("--weight", weight, 1_000_000);
        checkAtLeast("--scheduler-weight", schedulerWeight, 1);
        checkAtMost("--scheduler-weight", schedulerWeight, 0xffff);
        checkAtLeast("--heartbeat", heartbeat, 0.001);
        if (!(activation > heartbeat)) throw usage("--activation is longer than --heartbeat");
        checkAtMost("--activation", activation, MOST_SECONDS);
        if (completeTime != null && completeTime != 0) {
            checkAtLeast("--complete-time", completeTime, 0.001);
            checkAtMost("--complete-time", completeTime, MOST_SECONDS);
        }
        if (reassignments != null) {
            checkAtLeast("--reassignments", reassignments, 0);
            checkAtMost("--reassignments", reassignments, 1_000_000);
        }
        checkAtLeast("--pause", pause, 0);
        checkAtLeast("--grace", grace, 0);
        if (count != null) checkAtLeast("--count", count, 1);
        if (timeout != null) checkAtLeast("--timeout", timeout, 0);
        runs = new TaskProgram(program);
    }

    /** The name of a queue is a certified name. */
    static void checkQueue(Action command, String queue) {
        String why = Subjects.whyNotCertifiedName(queue);
        if (why != null) throw command.usage("queue " + Texts.quoted(queue) + ": " + why);
    }

    @Override
    String aloneOnTheBus() {
        return "no task of another process can arrive here.";
    }

    /** As long as there can be, for what takes the place of a number that no Duration holds. */
    private static Duration duration(double seconds) {
        return FtJoinCommand.duration(seconds);
    }

    @Override
    double patience() {
        return grace + TaskProgram.LAST_SECONDS;
    }

    @Override
    void beforeOpening() {
        if (reassignments == null) return;
        Quorl.setParameters("dqueue.reassignments=" + reassignments);
        parametersSet = true;
    }

    @Override
    void afterClosing() {
        if (parametersSet) Quorl.setParameters("dqueue.reassignments=" + DEFAULT_REASSIGNMENTS);
    }

    @Override
    void begin(Session with) {
        if (reassignments != null && !parametersSet) {
            throw new Failure("--reassignments is a setting of the process, and not for a line of a script");
        }
        ProgramFile.check(program.get(0));
        session = with;
        QuorlCmQueueTransport member;
        try {
            member = QuorlCmQueueTransport.builder(session.transport(transport)).name(queue).weight(weight).tasks(tasks)
                    .schedulerWeight(schedulerWeight).schedulerIntervals(duration(heartbeat), duration(activation)).open();
            if (completeTime != null) member.setCompleteTime(duration(completeTime));
        } catch (QuorlException e) {
            throw new Failure("queue " + queue + ": " + e.getMessage());
        }
        QuorlQueue waiting = new QuorlQueue("quorl tasks");
        QuorlCmListener listener = new QuorlCmListener(waiting, member, subject, QuorlCmListener.Confirmation.EXPLICIT, this::work);
        List<QuorlDispatcher> workers = new ArrayList<>();
        for (int i = 0; i < tasks; i++) workers.add(new QuorlDispatcher(waiting, "quorl-task-" + (i + 1)));
        session.atEnd(() -> {
            leave(member, listener);
            workers.forEach(QuorlDispatcher::close);
            waiting.close();
        });
    }

    /** Takes no further tasks, waits for the programs, and gives back what they have not done. */
    private void leave(QuorlCmQueueTransport member, QuorlCmListener listener) {
        synchronized (this) {
            leaving = true;
            notifyAll();
        }
        member.setWorkerTasks(0);
        int programs = runs.running();
        if (interrupted && programs > 0) {
            tell("leaving " + queue + (programs == 1 ? "; a program runs, and gets" : "; " + programs + " programs run, and get")
                    + " SIGTERM after " + Texts.number(grace) + " s");
        }
        runs.end(grace);
        awaitHandlers();
        // What is not done goes to others, and does not count as a failure.
        listener.close();
        member.close();
        synchronized (this) {
            if (interrupted) tell("interrupted; " + told());
        }
    }

    /** Their programs have ended, and they say what has become of the tasks. */
    private synchronized void awaitHandlers() {
        boolean wasInterrupted = false;
        while (busy > 0) {
            try {
                wait();
            } catch (InterruptedException e) {
                wasInterrupted = true;
            }
        }
        if (wasInterrupted) Thread.currentThread().interrupt();
    }

    private void work(QuorlCmListener listener, QuorlMsg task) throws InterruptedException {
        synchronized (this) {
            if (leaving) return;
            busy++;
        }
        try {
            runProgram(listener, task);
        } finally {
            synchronized (this) {
                busy--;
                notifyAll();
            }
        }
    }

    private void runProgram(QuorlCmListener listener, QuorlMsg task) throws InterruptedException {
        int code;
        try {
            code = runs.run(task, line -> {
                if (!quiet) session.print(line);
            });
        } catch (Failure | OutputClosed e) {
            listener.giveBack(task);
            fail(e);
            return;
        }
        if (code == 0) {
            listener.confirm(task);
            ended(true);
            return;
        }
        if (runs.isEnding()) {
            synchronized (this) {
                unfinished++;
            }
            return;
        }
        long number = QuorlCmMsg.getSequence(task);
        tell("task " + (number == 0 ? "" : number + " ") + "on " + task.getSendSubject() + ": " + Texts.quoted(program.get(0)) + " ended with "
                + code + "; the task is given back");
        ended(false);
        pause();
        listener.giveBack(task);
    }

    /** What fails at once would use up all the attempts of all tasks in no time. */
    private synchronized void pause() throws InterruptedException {
        long end = System.nanoTime() + duration(pause).toNanos();
        while (!leaving) {
            long left = end - System.nanoTime();
            if (left <= 0) return;
            wait(left / 1_000_000 + 1);
        }
    }

    private synchronized void ended(boolean well) {
        if (well) {
            done++;
        } else {
            failed++;
        }
        notifyAll();
    }

    private synchronized void fail(RuntimeException with) {
        if (failure == null) failure = with;
        notifyAll();
    }

    @Override
    void finish(Session with, boolean alone) throws InterruptedException {
        if (alone) tellReady(session, "working on " + subject + " for " + queue);
        if (count == null && !alone) return;
        Double limit = timeout == null && !alone ? Double.valueOf(Session.PATIENCE) : timeout;
        long end = System.nanoTime() + (long) ((limit == null ? 0 : limit) * 1e9);
        synchronized (this) {
            try {
                while (failure == null && (count == null || done < count)) {
                    long left = (end - System.nanoTime()) / 1_000_000 + 1;
                    if (limit != null && left <= 0) break;
                    wait(limit == null ? 0 : left);
                }
            } catch (InterruptedException e) {
                interrupted = alone;
                throw e;
            }
            if (failure != null) throw failure;
            if (count != null && done < count) {
                throw new Failure("work " + queue + ": " + done + " of " + count + " tasks were done within " + Texts.number(limit) + " s");
            }
        }
    }

    private String told() {
        return Texts.were(done, "task") + " done" + (failed == 0 ? "" : ", " + failed + " given back")
                + (unfinished == 0 ? "" : ", " + unfinished + " not finished");
    }
}
