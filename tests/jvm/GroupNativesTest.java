package com.vesma.quorl;

import static com.vesma.quorl.QuorlMsgTest.assertStatus;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;

import java.time.Duration;
import org.junit.jupiter.api.Test;

/**
 * The natives of fault tolerance at their edges, in a real machine over the real library: what becomes of several callbacks
 * on one thread before one take. The record is the thread's, so that of two members makes no difference.
 */
class GroupNativesTest extends OpenLibrary {
    private static final int PREPARE = 1;
    private static final int ACTIVATE = 2;
    private static final int DEACTIVATE = 3;
    private static final int PREPARE_AND_ACTIVATE = 4;

    private static final Duration HEARTBEAT = Duration.ofMillis(200);
    private static final Duration PREPARATION = Duration.ofMillis(500);
    private static final Duration ACTIVATION = Duration.ofSeconds(1);

    private QuorlFtMember join(int weight, Duration preparation) {
        return QuorlFtMember.builder(queue, transport, "g").weight(weight).intervals(HEARTBEAT, preparation, ACTIVATION).join();
    }

    /** Waits for so many events, and lets the library's callback run for the next of them. */
    private Object callback() {
        return QuorlQueue.quorlQueue_TimedDispatch(queue.id(), LIMIT.toSeconds());
    }

    private void waiting(long events) throws InterruptedException {
        await(() -> queue.getCount() >= events);
    }

    @Test
    void prepareAndThenActivateAreOne() {
        try (QuorlFtMember member = join(1, PREPARATION)) {
            assertSame(member, callback());
            assertSame(member, callback());
            assertEquals(PREPARE_AND_ACTIVATE, QuorlFtMember.getDispatchedAction());
            assertEquals(0, QuorlFtMember.getDispatchedAction());
        }
    }

    /** One that is told to act, and one above it, which claims its place: told to act, to prepare, to stop. */
    private interface Claimed {
        void look(QuorlFtMember acting, QuorlFtMember claiming) throws Exception;
    }

    private void whenClaimed(Claimed then) throws Exception {
        try (QuorlFtMember acting = join(1, Duration.ZERO)) {
            waiting(1);
            try (QuorlFtMember claiming = join(2, PREPARATION)) {
                waiting(3);
                then.look(acting, claiming);
            }
        }
    }

    @Test
    void activateAndThenPrepareIsPrepare() throws Exception {
        whenClaimed((acting, claiming) -> {
            assertSame(acting, callback());
            assertSame(claiming, callback());
            assertEquals(PREPARE, QuorlFtMember.getDispatchedAction());
            assertEquals(0, QuorlFtMember.getDispatchedAction());
        });
    }

    @Test
    void prepareAndThenDeactivateIsDeactivate() throws Exception {
        whenClaimed((acting, claiming) -> {
            assertSame(acting, callback());
            assertEquals(ACTIVATE, QuorlFtMember.getDispatchedAction());
            assertSame(claiming, callback());
            assertSame(acting, callback());
            assertEquals(DEACTIVATE, QuorlFtMember.getDispatchedAction());
            assertEquals(0, QuorlFtMember.getDispatchedAction());
        });
    }

    @Test
    void anActionIsTheThreadsThatWasTold() throws Exception {
        try (QuorlFtMember member = join(1, Duration.ZERO)) {
            assertSame(member, callback());
            Worker other = new Worker(() -> assertEquals(0, QuorlFtMember.getDispatchedAction()));
            other.join();
            assertEquals(ACTIVATE, QuorlFtMember.getDispatchedAction());
        }
    }

    @Test
    void aWeightOf65536ReachesTheLibraryAs0() {
        byte[] name = {'g'};
        try (QuorlFtMember member = join(1, Duration.ZERO)) {
            QuorlException e = assertThrows(QuorlException.class, () -> QuorlFtMember.quorlftMember_SetWeight(member.id(), 65536));
            assertEquals("the weight must be from 1 to 65535", e.getDetail());
            QuorlFtMember.quorlftMember_SetWeight(member.id(), 65537);
            for (int[] each : new int[][] {{65536, 1}, {1, 65536}}) {
                assertStatus(QuorlException.INVALID_ARG, () -> member.quorlftMember_Create(queue.id(), transport.id(), name, 1,
                        each[0], each[1], 1, 2, 3));
            }
        }
    }

    @Test
    void withoutACallbackTheCountIs0() throws Exception {
        assertEquals(0, QuorlFtMonitor.getActiveMembersCount());
        try (QuorlFtMonitor monitor = new QuorlFtMonitor(queue, transport, "nobody", ACTIVATION, (m, count) -> {})) {
            assertSame(monitor, callback());
            assertEquals(0, QuorlFtMonitor.getActiveMembersCount());
            assertEquals(0, QuorlFtMonitor.getActiveMembersCount());
        }
    }

    @Test
    void ofTwoCountsTheSecondIsGiven() throws Exception {
        try (QuorlQueue own = new QuorlQueue(); QuorlDispatcher others = new QuorlDispatcher(own);
                QuorlFtMonitor monitor = new QuorlFtMonitor(queue, transport, "g", ACTIVATION, (m, count) -> {});
                QuorlFtMember one = QuorlFtMember.builder(own, transport, "g").activeGoal(2).weight(3)
                        .intervals(HEARTBEAT, Duration.ZERO, ACTIVATION).join()) {
            do {
                assertSame(monitor, callback());
            } while (QuorlFtMonitor.getActiveMembersCount() == 0);
            try (QuorlFtMember other = QuorlFtMember.builder(own, transport, "g").activeGoal(2).weight(2)
                    .intervals(HEARTBEAT, Duration.ZERO, ACTIVATION).join();
                    QuorlFtMember third = QuorlFtMember.builder(own, transport, "g").activeGoal(3).weight(4)
                    .intervals(HEARTBEAT, Duration.ZERO, ACTIVATION).join()) {
                assertSame(monitor, callback());
                assertSame(monitor, callback());
                assertEquals(3, QuorlFtMonitor.getActiveMembersCount());
                assertEquals(0, QuorlFtMonitor.getActiveMembersCount());
            }
        }
    }

    @Test
    void aMemberOrMonitorThatIsRefusedLeavesNoReference() throws Exception {
        byte[] wildcard = {'*'};
        try (QuorlFtMember member = join(1, Duration.ZERO);
                QuorlFtMonitor monitor = new QuorlFtMonitor(queue, transport, "g", ACTIVATION, (m, count) -> {})) {
            int before = SoakTest.settledReferences();
            for (int i = 0; i < 100; i++) {
                assertStatus(QuorlException.INVALID_SUBJECT,
                        () -> member.quorlftMember_Create(queue.id(), transport.id(), wildcard, 1, 1, 1, 1, 2, 3));
                assertStatus(QuorlException.INVALID_SUBJECT,
                        () -> monitor.quorlftMonitor_Create(queue.id(), transport.id(), null, 0, 1));
                QuorlFtMember.quorlftMember_Destroy(0x7FFF_FFF0);
                QuorlFtMonitor.quorlftMonitor_Destroy(0x7FFF_FFF0);
            }
            assertEquals(before, SoakTest.settledReferences(), 50);
        }
    }
}
