package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.lang.reflect.UndeclaredThrowableException;
import java.time.Duration;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.OptionalInt;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.atomic.AtomicReference;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** Members and monitors of groups of this process, over its own bus or a daemon. */
class FaultToleranceTest extends OpenLibrary {
    private static final Duration HEARTBEAT = Duration.ofMillis(200);
    private static final Duration PREPARATION = Duration.ofMillis(500);
    private static final Duration ACTIVATION = Duration.ofSeconds(1);

    private final List<Throwable> thrown = Collections.synchronizedList(new ArrayList<>());
    private QuorlDispatcher dispatcher;

    @BeforeEach
    void dispatch() {
        dispatcher = QuorlDispatcher.builder(queue).uncaughtExceptionHandler((thread, e) -> thrown.add(e)).start();
    }

    @AfterEach
    void stopDispatching() {
        dispatcher.close();
    }

    /** What a member was told, as letters: P, A and D. A preparation may come again, and counts once then. */
    private static final class Story {
        private final StringBuilder told = new StringBuilder();

        synchronized void tell(char action) {
            if (action != 'P' || told.length() == 0 || told.charAt(told.length() - 1) != 'P') {
                told.append(action);
            }
        }

        synchronized String text() {
            return told.toString();
        }

        void await(String wanted) throws InterruptedException {
            OpenLibrary.await(() -> text().length() >= wanted.length());
            assertEquals(wanted, text());
        }
    }

    private QuorlFtMember.Builder builder(QuorlQueue on, QuorlTransport through, Story story) {
        return QuorlFtMember.builder(on, through, "plant.archive").intervals(HEARTBEAT, PREPARATION, ACTIVATION)
                .onPrepareToActivate(m -> story.tell('P')).onActivate(m -> story.tell('A')).onDeactivate(m -> story.tell('D'));
    }

    private QuorlFtMember.Builder builder(Story story) {
        return builder(queue, transport, story);
    }

    /** Joins, and waits until it acts: two that join at once may do so for a moment both. */
    private static QuorlFtMember joinActive(QuorlFtMember.Builder builder) throws InterruptedException {
        QuorlFtMember member = builder.join();
        assertTrue(member.awaitActive(LIMIT));
        return member;
    }

    private static void assertClosed(QuorlFtMember member) {
        assertFalse(member.isActive());
        assertThrows(QuorlClosedException.class, () -> member.awaitActive(LIMIT));
        assertThrows(QuorlClosedException.class, () -> member.setWeight(2));
    }

    // ---- actions ------------------------------------------------------------------------------------------------------

    @Test
    void aloneItIsToldToPrepareAndToActivate() throws Exception {
        Story story = new Story();
        try (QuorlFtMember member = builder(story).weight(7).join()) {
            assertFalse(member.isActive());
            assertEquals(0, member.getToken());
            assertFalse(member.awaitActive(Duration.ZERO));
            assertTrue(member.awaitActive(LIMIT));
            story.await("PA");
            assertTrue(member.isActive());
            assertNotEquals(0, member.getToken());
            assertEquals(List.of("plant.archive", 7, transport), List.of(member.getGroup(), member.getWeight(), member.getTransport()));
            assertEquals("QuorlFtMember[plant.archive]", member.toString());
        }
    }

    @Test
    void withoutAPreparationIntervalThereIsNoPreparation() throws Exception {
        Story story = new Story();
        try (QuorlFtMember member = builder(story).intervals(HEARTBEAT, Duration.ZERO, ACTIVATION).join()) {
            story.await("A");
        }
    }

    @Test
    void theNextTakesThePlaceOfOneThatIsClosedAndHasAHigherToken() throws Exception {
        Story first = new Story();
        Story next = new Story();
        try (QuorlFtMember one = joinActive(builder(first).weight(2)); QuorlFtMember other = builder(next).join()) {
            long token = one.getToken();
            one.close();
            assertClosed(one);
            assertEquals(token, one.getToken());
            assertTrue(other.awaitActive(LIMIT));
            assertTrue(Long.compareUnsigned(other.getToken(), token) > 0, other.getToken() + " after " + token);
            first.await("PA");
        }
    }

    @Test
    void aWeightThatIsChangedMovesThePlaceAndEachActivationHasATokenOfItsOwn() throws Exception {
        Story first = new Story();
        Story next = new Story();
        try (QuorlFtMember one = joinActive(builder(first).weight(2)); QuorlFtMember other = builder(next).join()) {
            long token = one.getToken();
            for (int round = 0; round < 3; round++) {
                (round % 2 == 0 ? other : one).setWeight(10 + round);
                assertTrue((round % 2 == 0 ? other : one).awaitActive(LIMIT));
                assertFalse((round % 2 == 0 ? one : other).isActive());
                long now = (round % 2 == 0 ? other : one).getToken();
                assertTrue(Long.compareUnsigned(now, token) > 0, now + " after " + token);
                token = now;
            }
            first.await("PADPAD");
            next.await("PADPA");
            assertEquals(12, other.getWeight());
        }
    }

    /** Longer intervals, so that what the next one waits for is the handler and not the end of the activation interval. */
    @Test
    void theNextIsActivatedWhenTheHandlerOfTheDeactivationHasReturned() throws Exception {
        Duration activation = Duration.ofSeconds(4);
        AtomicReference<String> wrong = new AtomicReference<>("the handler has not run");
        CountDownLatch nextActs = new CountDownLatch(1);
        ExecutorService executor = Executors.newSingleThreadExecutor();
        try (QuorlQueue own = new QuorlQueue(); QuorlQueue third = new QuorlQueue(); QuorlDispatcher others = new QuorlDispatcher(own);
                // The library's callback returns, and the dispatcher goes on, long before the handler does.
                QuorlDispatcher handsOver = QuorlDispatcher.builder(third).executor(executor).start();
                QuorlFtMember one = joinActive(QuorlFtMember.builder(third, transport, "g").weight(2)
                        .intervals(HEARTBEAT, Duration.ZERO, activation)
                        .onDeactivate(m -> wrong.set(nextActs.await(1, TimeUnit.SECONDS) ? "the next acts already" : null)));
                QuorlFtMember other = QuorlFtMember.builder(own, transport, "g").intervals(HEARTBEAT, Duration.ZERO, activation)
                        .onActivate(m -> nextActs.countDown()).join()) {
            other.setWeight(3);
            await(nextActs);
            assertEquals(null, wrong.get());
        } finally {
            executor.shutdown();
        }
    }

    @Test
    void whatHandlersThrowGoesToTheDispatcherAndChangesNothing() throws Exception {
        Story next = new Story();
        AtomicInteger deactivated = new AtomicInteger();
        try (QuorlFtMember one = joinActive(builder(new Story()).weight(2).onActivate(m -> {
            throw new IllegalStateException("not today");
        }).onDeactivate(m -> {
            deactivated.incrementAndGet();
            throw new Exception("nor now");
        })); QuorlFtMember other = builder(next).join()) {
            other.setWeight(3);
            assertTrue(other.awaitActive(LIMIT));
            await(() -> thrown.size() == 2);
            assertEquals("not today", thrown.get(0).getMessage());
            assertEquals(UndeclaredThrowableException.class, thrown.get(1).getClass());
            assertEquals("nor now", thrown.get(1).getCause().getMessage());
            assertEquals(1, deactivated.get());
            assertFalse(one.isActive());
        }
    }

    /** Whatever the threads do, a member is told to act and to stop in turn, by one thread at a time, and knows which it is. */
    @Test
    void manyThreadsKeepTheOrder() throws Exception {
        ExecutorService executor = Executors.newFixedThreadPool(4);
        try (QuorlQueue many = new QuorlQueue(); QuorlQueue handed = new QuorlQueue();
                QuorlDispatcher threads = QuorlDispatcher.builder(many).threads(4).start();
                QuorlDispatcher pool = QuorlDispatcher.builder(handed).executor(executor).unordered().start()) {
            AtomicReference<String> wrong = new AtomicReference<>();
            List<QuorlFtMember> members = new ArrayList<>();
            List<Story> stories = List.of(new Story(), new Story());
            for (int i = 0; i < 2; i++) {
                Story story = stories.get(i);
                members.add(QuorlFtMember.builder(i == 0 ? many : handed, transport, "g")
                        .intervals(Duration.ofMillis(20), Duration.ZERO, ACTIVATION).onActivate(m -> story.tell('A')).onDeactivate(m -> {
                            if (m.isActive()) wrong.set("active when it is to stop");
                            story.tell('D');
                        }).join());
                await(() -> members.get(0).isActive());
            }
            for (int round = 0; round < 20; round++) {
                QuorlFtMember next = members.get(round % 2);
                next.setWeight(10 + round);
                assertTrue(next.awaitActive(LIMIT));
                QuorlFtMember last = members.get(1 - round % 2);
                await(() -> !last.isActive());
            }
            assertEquals(null, wrong.get());
            for (Story story : stories) {
                assertTrue(story.text().matches("(AD)+A?"), story.text());
            }
            members.forEach(QuorlFtMember::close);
        } finally {
            executor.shutdown();
        }
    }

    private static void runNext(LinkedBlockingQueue<Runnable> tasks) throws InterruptedException {
        Runnable next = tasks.poll(LIMIT.toSeconds(), TimeUnit.SECONDS);
        assertTrue(next != null, "no action has come");
        next.run();
    }

    /** Its handler would begin what another member does by then. */
    @Test
    void anActivationIsLeftOutWhenItsDeactivationIsThereBeforeItsHandlerCouldBegin() throws Exception {
        LinkedBlockingQueue<Runnable> tasks = new LinkedBlockingQueue<>();
        CountDownLatch inside = new CountDownLatch(1);
        CountDownLatch leave = new CountDownLatch(1);
        Story story = new Story();
        try (QuorlQueue own = new QuorlQueue(); QuorlDispatcher handsOver = QuorlDispatcher.builder(own).executor(tasks::add).unordered().start();
                QuorlFtMember one = builder(own, transport, story).weight(2).intervals(HEARTBEAT, Duration.ZERO, ACTIVATION)
                        .onDeactivate(m -> {
                            story.tell('D');
                            inside.countDown();
                            await(leave);
                        }).join()) {
            runNext(tasks);
            long token = one.getToken();
            try (QuorlFtMember other = builder(new Story()).intervals(HEARTBEAT, Duration.ZERO, ACTIVATION).join()) {
                other.setWeight(3);
                Worker stopping = new Worker(() -> runNext(tasks));
                await(inside);
                assertTrue(other.awaitActive(LIMIT), "it does not wait for the handler for ever");
                one.setWeight(4);
                runNext(tasks);
                other.setWeight(5);
                runNext(tasks);
                leave.countDown();
                stopping.join();
                assertEquals("AD", story.text());
                assertEquals(token, one.getToken());
                assertFalse(one.isActive());
                assertTrue(other.awaitActive(LIMIT));
            }
        }
    }

    // ---- waiting ------------------------------------------------------------------------------------------------------

    private Worker waiter(QuorlFtMember member, AtomicReference<Object> outcome) {
        return new Worker(() -> {
            try {
                outcome.set(member.awaitActive(Duration.ofSeconds(Long.MAX_VALUE)));
            } catch (Exception e) {
                outcome.set(e);
            }
        });
    }

    private interface End {
        void run(Worker waiting) throws Exception;
    }

    /** Ends a wait for a member that stays a standby. */
    private void assertEnds(Class<?> how, QuorlFtMember member, End end) throws Exception {
        AtomicReference<Object> outcome = new AtomicReference<>();
        Worker waiting = waiter(member, outcome);
        await(() -> waiting.thread.getState() == Thread.State.TIMED_WAITING);
        end.run(waiting);
        waiting.join();
        assertEquals(how, outcome.get().getClass());
    }

    @Test
    void waitsEndWithWhatIsWaitedFor() throws Exception {
        try (QuorlFtMember active = joinActive(builder(new Story()).weight(2))) {
            QuorlQueue own = new QuorlQueue();
            QuorlQrdTransport mine = new QuorlQrdTransport();
            try (QuorlFtMember member = builder(own, transport, new Story()).join()) {
                assertEnds(InterruptedException.class, member, waiting -> waiting.thread.interrupt());
                assertEnds(QuorlClosedException.class, member, waiting -> member.close());
            }
            try (QuorlFtMember member = builder(queue, mine, new Story()).join()) {
                assertEnds(QuorlClosedException.class, member, waiting -> mine.close());
                assertFalse(member.isClosed());
            }
            try (QuorlFtMember member = builder(own, transport, new Story()).join()) {
                assertEnds(QuorlClosedException.class, member, waiting -> own.close());
                assertTrue(member.isClosed());
            }
            QuorlFtMember last = builder(new Story()).join();
            assertEnds(QuorlClosedException.class, last, waiting -> quorl.close());
            assertClosed(last);
        } finally {
            quorl = Quorl.open();
        }
    }

    @Test
    void waitsThatMakeNoSenseAreRefused() throws Exception {
        AtomicReference<Throwable> inHandler = new AtomicReference<>();
        CountDownLatch done = new CountDownLatch(1);
        try (QuorlFtMember member = builder(new Story()).onPrepareToActivate(m -> {
            assertFalse(m.awaitActive(Duration.ZERO));
            inHandler.set(assertThrows(IllegalStateException.class, () -> m.awaitActive(LIMIT)));
            done.countDown();
        }).join()) {
            assertThrows(IllegalArgumentException.class, () -> member.awaitActive(Duration.ofNanos(-1)));
            Thread.currentThread().interrupt();
            assertThrows(InterruptedException.class, () -> member.awaitActive(Duration.ZERO));
            await(done);
            assertEquals("a handler of QuorlFtMember[plant.archive] waits for another one, which cannot run before this one returns",
                    inHandler.get().getMessage());
        }
    }

    // ---- closing ------------------------------------------------------------------------------------------------------

    @Test
    void closedInItsOwnHandlerItLeavesAtOnce() throws Exception {
        Story next = new Story();
        CountDownLatch closed = new CountDownLatch(1);
        CountDownLatch leave = new CountDownLatch(1);
        try (QuorlQueue own = new QuorlQueue(); QuorlDispatcher others = new QuorlDispatcher(own);
                QuorlFtMember one = builder(new Story()).weight(2).onActivate(m -> {
                    m.close();
                    assertFalse(m.isActive());
                    closed.countDown();
                    await(leave);
                }).join(); QuorlFtMember other = builder(own, transport, next).join()) {
            await(closed);
            assertTrue(other.awaitActive(LIMIT));
            leave.countDown();
        }
        assertEquals(List.of(), thrown);
    }

    /** One that is inside a handler still acts for its group, until that has returned. */
    @Test
    void aCloseWaitsForTheHandlerBeforeItLeaves() throws Exception {
        CountDownLatch inside = new CountDownLatch(1);
        CountDownLatch leave = new CountDownLatch(1);
        Story next = new Story();
        try (QuorlQueue own = new QuorlQueue(); QuorlDispatcher others = new QuorlDispatcher(own);
                QuorlFtMember one = builder(new Story()).weight(2).onActivate(m -> {
                    assertTrue(m.awaitActive(Duration.ZERO));
                    inside.countDown();
                    await(leave);
                    next.tell('!');
                }).join()) {
            await(inside);
            assertTrue(one.isActive());
            assertFalse(one.awaitActive(Duration.ofMillis(1)), "its handler has not returned");
            QuorlFtMember other = builder(own, transport, next).intervals(HEARTBEAT, Duration.ZERO, ACTIVATION).join();
            Worker closer = new Worker(one::close);
            await(() -> closer.thread.getState() == Thread.State.TIMED_WAITING);
            leave.countDown();
            closer.join();
            next.await("!A");
            other.close();
        }
    }

    @Test
    void aMemberWhoseTransportIsClosedStops() throws Exception {
        Story story = new Story();
        QuorlQrdTransport mine = new QuorlQrdTransport();
        try (QuorlFtMember member = builder(queue, mine, story).join()) {
            assertTrue(member.awaitActive(LIMIT));
            mine.close();
            story.await("PAD");
            assertFalse(member.isActive());
            member.setWeight(5);
            assertThrows(QuorlClosedException.class, () -> member.awaitActive(LIMIT));
        }
    }

    @Test
    void aMemberWhoseQueueIsClosedLeavesItsPlace() throws Exception {
        QuorlQueue own = new QuorlQueue();
        try (QuorlDispatcher others = new QuorlDispatcher(own);
                QuorlFtMember one = joinActive(builder(own, transport, new Story()).weight(2));
                QuorlFtMember other = builder(new Story()).join()) {
            own.close();
            assertFalse(one.isActive());
            assertTrue(other.awaitActive(LIMIT));
        }
    }

    @Test
    void everyOrderOfClosingEnds() throws Exception {
        java.util.Random random = new java.util.Random(1);
        for (int i = 0; i < 60; i++) {
            Quorl nested = Quorl.open();
            QuorlQrdTransport mine = new QuorlQrdTransport();
            QuorlQueue own = new QuorlQueue();
            List<AutoCloseable> all = new ArrayList<>(List.of(nested, mine, own, new QuorlDispatcher(own),
                    QuorlFtMember.builder(own, mine, "g").intervals(Duration.ofMillis(1), Duration.ZERO, Duration.ofMillis(3))
                            .onActivate(QuorlFtMember::close).join(),
                    QuorlFtMember.builder(own, mine, "g").intervals(Duration.ofMillis(1), Duration.ofMillis(2), Duration.ofMillis(3))
                            .onDeactivate(m -> m.setWeight(1)).onActivate(m -> m.setWeight(2)).join(),
                    new QuorlFtMonitor(own, mine, "g", Duration.ofMillis(3), (m, count) -> {
                        if (count > 0) m.close();
                    })));
            for (int twice = 0; twice < 2; twice++) {
                Collections.shuffle(all, random);
                List<Worker> workers = new ArrayList<>();
                for (AutoCloseable each : all) {
                    if (i % 2 == 0) {
                        each.close();
                    } else {
                        workers.add(new Worker(each::close));
                    }
                }
                for (Worker worker : workers) {
                    worker.join();
                }
            }
        }
    }

    // ---- what is refused ----------------------------------------------------------------------------------------------

    private static int status(org.junit.jupiter.api.function.Executable call) {
        return assertThrows(QuorlException.class, call).getStatus();
    }

    @Test
    void wrongArgumentsAreRefused() {
        for (int wrong : new int[] {0, -1, 65536, Integer.MAX_VALUE}) {
            assertEquals("the weight is not in 1 to 65535: " + wrong,
                    assertThrows(IllegalArgumentException.class, () -> builder(new Story()).weight(wrong)).getMessage());
            assertEquals("the active goal is not in 1 to 65535: " + wrong,
                    assertThrows(IllegalArgumentException.class, () -> builder(new Story()).activeGoal(wrong)).getMessage());
        }
        Duration second = Duration.ofSeconds(1);
        for (Duration wrong : List.of(Duration.ZERO, Duration.ofNanos(1), Duration.ofDays(31), Duration.ofSeconds(Long.MAX_VALUE))) {
            assertEquals(QuorlException.INVALID_ARG,
                    status(() -> builder(new Story()).intervals(wrong, Duration.ZERO, second).join()));
            assertEquals(QuorlException.INVALID_ARG, status(() -> new QuorlFtMonitor(queue, transport, "g", wrong, (m, count) -> {})));
        }
        assertEquals(QuorlException.INVALID_ARG, status(() -> builder(new Story()).intervals(second, Duration.ZERO, second).join()));
        assertEquals(QuorlException.INVALID_ARG,
                status(() -> builder(new Story()).intervals(HEARTBEAT, second, Duration.ofMillis(500)).join()));
        assertThrows(IllegalArgumentException.class, () -> builder(new Story()).intervals(second.negated(), second, second));
        assertThrows(IllegalArgumentException.class,
                () -> new QuorlFtMonitor(queue, transport, "g", second.negated(), (m, count) -> {}));
        for (String name : new String[] {"", "*", "a.>", ".", "a..b", "x".repeat(245), "x".repeat(1_000_000)}) {
            assertEquals(QuorlException.INVALID_SUBJECT, status(() -> QuorlFtMember.builder(queue, transport, name).join()));
            assertEquals(QuorlException.INVALID_SUBJECT, status(() -> new QuorlFtMonitor(queue, transport, name, second, (m, count) -> {})));
        }
        try (QuorlFtMember member = builder(new Story()).weight(65535).activeGoal(65535).join()) {
            assertThrows(IllegalArgumentException.class, () -> member.setWeight(65536));
            assertThrows(IllegalArgumentException.class, () -> member.setWeight(0));
            assertEquals(65535, member.getWeight());
        }
    }

    // ---- monitors -----------------------------------------------------------------------------------------------------

    @Test
    void aMonitorIsToldEveryChange() throws Exception {
        List<Integer> counts = Collections.synchronizedList(new ArrayList<>());
        try (QuorlFtMember one = builder(new Story()).activeGoal(2).join(); QuorlFtMember other = builder(new Story()).activeGoal(2).join()) {
            assertTrue(one.awaitActive(LIMIT) && other.awaitActive(LIMIT));
            try (QuorlFtMonitor monitor = new QuorlFtMonitor(queue, transport, "plant.archive", ACTIVATION, (m, count) -> counts.add(count))) {
                assertEquals(List.of("plant.archive", transport, "QuorlFtMonitor[plant.archive]"),
                        List.of(monitor.getGroup(), monitor.getTransport(), monitor.toString()));
                await(() -> counts.contains(2));
                one.close();
                await(() -> monitor.getActiveMembers().equals(OptionalInt.of(1)));
                other.close();
                await(() -> monitor.getActiveMembers().equals(OptionalInt.of(0)));
            }
            assertTrue(List.of(List.of(2, 1, 0), List.of(1, 2, 1, 0)).contains(counts), counts.toString());
        }
    }

    @Test
    void aMonitorOfNobodySaysZeroOnceItKnows() throws Exception {
        try (QuorlFtMonitor monitor = new QuorlFtMonitor(queue, transport, "nobody", ACTIVATION, (m, count) -> m.close())) {
            assertEquals(OptionalInt.empty(), monitor.getActiveMembers());
            await(() -> monitor.isClosed());
            assertEquals(OptionalInt.of(0), monitor.getActiveMembers());
        }
        assertEquals(List.of(), thrown);
    }
}
