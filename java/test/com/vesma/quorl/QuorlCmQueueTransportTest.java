package com.vesma.quorl;

import static com.vesma.quorl.QuorlMsgTest.assertStatus;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ConcurrentLinkedQueue;
import java.util.concurrent.TimeUnit;
import java.util.function.BooleanSupplier;
import java.util.stream.Collectors;
import java.util.stream.IntStream;
import org.junit.jupiter.api.Test;

/** Members of distributed queues. */
class QuorlCmQueueTransportTest extends OpenLibrary {
    private static final Duration LIMIT = Duration.ofSeconds(60);

    record Task(int number, String what) {}

    private QuorlCmQueueTransport join(int tasks) {
        return QuorlCmQueueTransport.builder(transport).name("crew").tasks(tasks)
                .schedulerIntervals(Duration.ofMillis(50), Duration.ofMillis(200)).open();
    }

    private QuorlCmTransport boss() {
        QuorlCmTransport boss = QuorlCmTransport.builder(transport).name("boss").open();
        boss.addListener("crew", "work.>");
        return boss;
    }

    private static CompletableFuture<QuorlCmDelivery> submit(QuorlCmTransport boss, int number) {
        try (QuorlMsg task = QuorlMsg.of(new Task(number, "task " + number))) {
            return boss.sendTracked(task.setSendSubject("work.x"));
        }
    }

    private void until(BooleanSupplier condition) throws InterruptedException {
        long end = System.nanoTime() + LIMIT.toNanos();
        while (!condition.getAsBoolean()) {
            assertTrue(System.nanoTime() < end);
            queue.dispatch(Duration.ofMillis(10));
        }
    }

    private static List<Integer> sorted(Iterable<Integer> numbers) {
        List<Integer> all = new ArrayList<>();
        numbers.forEach(all::add);
        all.sort(null);
        return all;
    }

    private static List<Integer> upTo(int count) {
        return IntStream.range(0, count).boxed().collect(Collectors.toList());
    }

    @Test
    void tasksAreRecordsAndEachIsDoneOnce() throws Exception {
        List<Integer> done = new ArrayList<>();
        try (QuorlCmQueueTransport one = join(10);
                QuorlCmQueueTransport two = join(10);
                QuorlCmListener first = new QuorlCmListener(queue, one, "work.*", (l, task) -> done.add(task.to(Task.class).number()));
                QuorlCmListener second = new QuorlCmListener(queue, two, "work.*", (l, task) -> done.add(task.to(Task.class).number()));
                QuorlCmTransport boss = boss()) {
            assertEquals("crew", one.getName());
            assertSame(transport, one.getTransport());
            assertSame(one, first.getQueueTransport());
            assertNull(first.getTransport());
            List<CompletableFuture<QuorlCmDelivery>> sent = IntStream.range(0, 50).mapToObj(i -> submit(boss, i)).toList();
            until(() -> sent.stream().allMatch(CompletableFuture::isDone));
            assertTrue(sent.get(0).get().confirmedBy().contains("crew"));
            assertEquals(upTo(50), sorted(done));
            assertEquals(0, one.getUnassignedCount());
        }
    }

    @Test
    void aHandlerThatThrowsGivesTheTaskToAnother() throws Exception {
        List<Integer> done = new ArrayList<>();
        List<Integer> refused = new ArrayList<>();
        try (QuorlCmQueueTransport one = join(10);
                QuorlCmListener first = new QuorlCmListener(queue, one, "work.*", (l, task) -> {
                    int number = task.to(Task.class).number();
                    if (!refused.contains(number)) {
                        refused.add(number);
                        throw new IllegalStateException("not now");
                    }
                    done.add(number);
                });
                QuorlCmTransport boss = boss()) {
            CompletableFuture<QuorlCmDelivery> sent = submit(boss, 7);
            int thrown = 0;
            while (!sent.isDone()) {
                try {
                    until(sent::isDone);
                } catch (IllegalStateException e) {
                    assertEquals("not now", e.getMessage());
                    thrown++;
                }
            }
            assertEquals(1, thrown);
            assertEquals(List.of(7), refused);
            assertEquals(List.of(7), done);
            assertEquals(1, QuorlCmQueueTransport.status(transport, "crew", LIMIT).reassigned());
        }
    }

    @Test
    void theProgramMaySayItselfWhatIsDone() throws Exception {
        List<QuorlMsg> held = new ArrayList<>();
        try (QuorlCmQueueTransport one = join(10);
                QuorlCmListener worker = new QuorlCmListener(queue, one, "work.*", QuorlCmListener.Confirmation.EXPLICIT,
                        (l, task) -> held.add(task.keep()));
                QuorlCmTransport boss = boss()) {
            CompletableFuture<QuorlCmDelivery> sent = submit(boss, 1);
            until(() -> held.size() == 1);
            assertFalse(sent.isDone());
            worker.giveBack(held.get(0));
            worker.giveBack(held.get(0));
            until(() -> held.size() == 2);
            worker.confirm(held.get(1));
            worker.confirm(held.get(1));
            until(sent::isDone);
            // Plain messages are tasks too.
            send("work.x", 2);
            until(() -> held.size() == 3);
            worker.giveBack(held.get(2));
            until(() -> held.size() == 4);
            worker.confirm(held.get(3));
            until(() -> status().completed() >= 2);
            assertEquals(2, status().reassigned());
            try (QuorlQueue other = new QuorlQueue();
                    QuorlCmListener plain = new QuorlCmListener(other, boss, "other", (l, m) -> {})) {
                assertThrows(IllegalStateException.class, () -> plain.giveBack(held.get(0)));
            }
            held.forEach(QuorlMsg::close);
        }
    }

    private QuorlCmQueueTransport.Status status() {
        try {
            return QuorlCmQueueTransport.status(transport, "crew", LIMIT);
        } catch (InterruptedException e) {
            throw new AssertionError(e);
        }
    }

    @Test
    void closingFinishesWhatHandlersWorkOn() throws Exception {
        ConcurrentLinkedQueue<Integer> done = new ConcurrentLinkedQueue<>();
        CompletableFuture<Void> started = new CompletableFuture<>();
        CompletableFuture<Void> finish = new CompletableFuture<>();
        QuorlCmQueueTransport member = join(1);
        try (QuorlQueue own = new QuorlQueue();
                QuorlCmListener worker = new QuorlCmListener(own, member, "work.*", (l, task) -> {
                    started.complete(null);
                    finish.get(60, TimeUnit.SECONDS);
                    done.add(task.to(Task.class).number());
                });
                QuorlDispatcher dispatcher = new QuorlDispatcher(own);
                QuorlCmTransport boss = boss()) {
            CompletableFuture<QuorlCmDelivery> sent = submit(boss, 3);
            started.get(60, TimeUnit.SECONDS);
            Thread closing = new Thread(member::close);
            closing.start();
            while (!member.isClosed()) {
                Thread.onSpinWait();
            }
            finish.complete(null);
            closing.join(60_000);
            assertFalse(closing.isAlive());
            sent.get(60, TimeUnit.SECONDS);
            assertEquals(List.of(3), List.copyOf(done));
            assertTrue(worker.isClosed());
        }
    }

    @Test
    void closingInsideAHandlerDoesNotWaitForIt() throws Exception {
        List<Integer> done = new ArrayList<>();
        QuorlCmQueueTransport goes = join(5);
        new QuorlCmListener(queue, goes, "work.*", (l, task) -> goes.close());
        try (QuorlCmTransport boss = boss()) {
            CompletableFuture<QuorlCmDelivery> sent = submit(boss, 4);
            until(goes::isClosed);
            try (QuorlCmQueueTransport stays = join(5);
                    QuorlCmListener worker = new QuorlCmListener(queue, stays, "work.*", (l, task) -> done.add(task.to(Task.class).number()))) {
                until(sent::isDone);
            }
        }
        assertEquals(List.of(4), done);
    }

    /** They come while the listener is being made, perhaps before the one who makes it knows its id. */
    @Test
    void tasksThatWaitForAListenerAreDone() throws Exception {
        try (QuorlCmQueueTransport member = join(10); QuorlCmTransport boss = boss(); QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
            try (QuorlCmListener first = new QuorlCmListener(queue, member, "work.*", (l, task) -> {})) {
                submit(boss, 0).get(60, TimeUnit.SECONDS);
            }
            for (int i = 1; i <= 30; i++) {
                CompletableFuture<QuorlCmDelivery> sent = submit(boss, i);
                try (QuorlCmListener worker = new QuorlCmListener(queue, member, "work.*", (l, task) -> {})) {
                    sent.get(60, TimeUnit.SECONDS);
                }
            }
        }
    }

    @Test
    void argumentsAreChecked() {
        QuorlCmQueueTransport.Builder builder = QuorlCmQueueTransport.builder(transport);
        assertThrows(IllegalStateException.class, builder::open);
        for (String bad : List.of("", "a.*", ">", "_x", "n".repeat(201))) {
            assertStatus(QuorlException.INVALID_NAME, () -> QuorlCmQueueTransport.builder(transport).name(bad).open());
        }
        builder.name("crew");
        for (int weight : new int[] {0, -1, 65536}) {
            assertThrows(IllegalArgumentException.class, () -> builder.schedulerWeight(weight));
        }
        for (int bad : new int[] {0, -1, 1_000_001}) {
            assertStatus(QuorlException.INVALID_ARG, () -> QuorlCmQueueTransport.builder(transport).name("crew").weight(bad).open());
        }
        for (int bad : new int[] {-1, 1_000_001}) {
            assertStatus(QuorlException.INVALID_ARG, () -> QuorlCmQueueTransport.builder(transport).name("crew").tasks(bad).open());
        }
        assertStatus(QuorlException.INVALID_ARG, () -> QuorlCmQueueTransport.builder(transport).name("crew")
                .schedulerIntervals(Duration.ofSeconds(2), Duration.ofSeconds(1)).open());
        assertThrows(IllegalArgumentException.class, () -> QuorlCmQueueTransport.builder(transport).name("crew")
                .schedulerIntervals(Duration.ofSeconds(-2), Duration.ofSeconds(1)).open());
        QuorlCmQueueTransport member = builder.schedulerWeight(65535).weight(1_000_000).tasks(0).open();
        member.setCompleteTime(Duration.ofSeconds(1));
        member.setCompleteTime(Duration.ZERO);
        member.setTaskBacklogLimitInBytes(1 << 20);
        member.setTaskBacklogLimitInMessages(Integer.MAX_VALUE);
        member.setWorkerTasks(1);
        member.setWorkerWeight(2);
        assertStatus(QuorlException.INVALID_ARG, () -> member.setWorkerWeight(0));
        assertStatus(QuorlException.INVALID_ARG, () -> member.setWorkerTasks(-1));
        assertThrows(IllegalArgumentException.class, () -> member.setTaskBacklogLimitInBytes(-1));
        assertThrows(IllegalArgumentException.class, () -> member.setCompleteTime(Duration.ofSeconds(-1)));
        assertStatus(QuorlException.INVALID_SUBJECT, () -> new QuorlCmListener(queue, member, "_QUORL.x", (l, t) -> {}));
        assertEquals("QuorlCmQueueTransport[crew]", member.toString());
        member.close();
        member.close();
        assertEquals("QuorlCmQueueTransport[closed]", member.toString());
        assertThrows(QuorlClosedException.class, member::getUnassignedCount);
        assertThrows(QuorlClosedException.class, () -> member.setWorkerTasks(1));
        assertThrows(QuorlClosedException.class, () -> new QuorlCmListener(queue, member, "work.*", (l, t) -> {}));
    }

    @Test
    void nobodyAnswersForAQueueWithoutMembers() throws Exception {
        assertNull(QuorlCmQueueTransport.status(transport, "nobody", Duration.ofMillis(50)));
        try (QuorlCmQueueTransport member = join(3)) {
            QuorlCmQueueTransport.Status status = status();
            assertEquals("crew", status.queue());
            assertEquals(1, status.members());
            assertEquals(status.workers().get(0).member(), status.scheduler());
        }
    }
}
