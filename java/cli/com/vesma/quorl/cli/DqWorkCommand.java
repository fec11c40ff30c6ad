package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlClosedException;
import com.vesma.quorl.QuorlCmListener;
import com.vesma.quorl.QuorlCmQueueTransport;
import com.vesma.quorl.QuorlDispatcher;
import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlQueue;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

/** quorl dq work: runs a program for each task of a distributed queue. */
@Command(name = "work", description = {"Joins a distributed queue and runs a program for each task that it is given.",
        "The program gets the message as a line of JSON on its standard input, and in the environment TASK_SUBJECT, TASK_REPLY and "
                + "TASK_FIELD_name for each field with one value. Exit code 0 completes the task; with any other it goes to another worker."},
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
            description = "tasks at once, each a program that runs (${DEFAULT-VALUE})")
    int tasks;

    @Option(names = "--weight", paramLabel = "N", defaultValue = "1", description = "this worker's share of the tasks (${DEFAULT-VALUE})")
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

    @Option(names = {"-n", "--count"}, paramLabel = "N", description = "end after N tasks were done")
    Long count;

    @Option(names = "--timeout", paramLabel = "SECONDS",
            description = "end after that time; it is a failure when --count is given and not reached")
    Double timeout;

    @Option(names = "--quiet", description = "do not print what the programs print")
    boolean quiet;

    private TaskProgram runs;
    private Session session;

    /** Guarded by this, as the next. */
    private long done;
    private long failed;
    private RuntimeException failure;

    @Override
    void check() {
        checkQueue(queue);
        checkListenable(subject, null);
        checkAtLeast("--tasks", tasks, 1);
        checkAtLeast("--weight", weight, 1);
        checkAtLeast("--scheduler-weight", schedulerWeight, 1);
        if (schedulerWeight > 0xffff) throw usage("--scheduler-weight takes a number up to 65535, not " + schedulerWeight);
        checkAtLeast("--heartbeat", heartbeat, 0.001);
        if (!(activation > heartbeat)) throw usage("--activation is longer than --heartbeat");
        if (completeTime != null) checkAtLeast("--complete-time", completeTime, 0);
        if (count != null) checkAtLeast("--count", count, 1);
        if (timeout != null) checkAtLeast("--timeout", timeout, 0);
        runs = new TaskProgram(program);
    }

    @Override
    String aloneOnTheBus() {
        return "no task of another process can arrive here.";
    }

    private static Duration duration(double seconds) {
        return Duration.ofNanos((long) (seconds * 1e9));
    }

    @Override
    void begin(Session with) {
        ProgramFile.check(program.get(0));
        session = with;
        QuorlCmQueueTransport member;
        try {
            member = QuorlCmQueueTransport.builder(session.transport(transport)).name(queue).weight(weight).tasks(tasks)
                    .schedulerWeight(schedulerWeight).schedulerIntervals(duration(heartbeat), duration(activation)).open();
        } catch (QuorlException e) {
            throw new Failure("queue " + queue + ": " + e.getMessage());
        }
        if (completeTime != null) member.setCompleteTime(duration(completeTime));
        QuorlQueue waiting = new QuorlQueue("quorl tasks");
        List<QuorlDispatcher> workers = new ArrayList<>();
        for (int i = 0; i < tasks; i++) workers.add(new QuorlDispatcher(waiting, "quorl-task-" + (i + 1)));
        // What programs work on is finished first, if it does not take too long.
        session.atEnd(() -> {
            member.close();
            runs.close();
            workers.forEach(QuorlDispatcher::close);
            waiting.close();
        });
        new QuorlCmListener(waiting, member, subject, QuorlCmListener.Confirmation.EXPLICIT, this::work);
    }

    private void work(QuorlCmListener listener, QuorlMsg task) throws InterruptedException {
        String about = task.getSendSubject();
        int code;
        try {
            code = runs.run(task, line -> {
                if (!quiet) session.print(line);
            });
        } catch (Failure | OutputClosed e) {
            settle(() -> listener.giveBack(task));
            fail(e);
            return;
        }
        if (code == 0) {
            settle(() -> listener.confirm(task));
            ended(true);
            return;
        }
        settle(() -> listener.giveBack(task));
        if (runs.hasEnded()) return;
        ended(false);
        synchronized (err()) {
            err().println("quorl: task " + about + ": " + Texts.quoted(program.get(0)) + " ended with " + code
                    + "; the task goes to another worker");
            err().flush();
        }
    }

    /** A member that has left holds no tasks: they went to other workers. */
    private static void settle(Runnable told) {
        try {
            told.run();
        } catch (QuorlClosedException e) {
            // As said.
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
            while (failure == null && (count == null || done < count)) {
                long left = (end - System.nanoTime()) / 1_000_000 + 1;
                if (limit != null && left <= 0) break;
                wait(limit == null ? 0 : left);
            }
            if (failure != null) throw failure;
            if (count != null && done < count) {
                throw new Failure("work " + queue + ": " + done + " of " + count + " tasks were done within " + Texts.number(limit) + " s");
            }
        }
    }

    @Override
    synchronized String progress() {
        return Texts.were(done, "task") + " done" + (failed == 0 ? "" : ", " + failed + " given back");
    }
}
