package com.vesma.quorl;

import static com.vesma.quorl.QuorlMsgTest.assertStatus;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotSame;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.charset.StandardCharsets;
import java.time.Duration;
import java.util.Arrays;
import org.junit.jupiter.api.Test;

/** The natives of queues, groups, events and transports at their edges, in a real machine over the real library. */
class EventNativesTest extends OpenLibrary {
    private static final int UNKNOWN = 0x7FFF_FFF0;

    private QuorlListener silent(String subject) {
        return new QuorlListener(queue, transport, subject, (l, m) -> {});
    }

    private QuorlVectorListener silentVector(String subject) {
        return new QuorlVectorListener(queue, transport, subject, (l, m) -> {});
    }

    private Object dispatched() {
        return QuorlQueue.quorlQueue_TimedDispatch(queue.id(), 0);
    }

    private static int numberIn(long handle) {
        try (QuorlMsg message = new QuorlMsg(handle)) {
            return message.getI32("n");
        }
    }

    // ---- listeners ----------------------------------------------------------------------------------------------------

    @Test
    void aMessageIsFetchedOnce() {
        try (QuorlListener listener = silent("a")) {
            send("a", 7);
            assertSame(listener, dispatched());
            assertEquals(7, numberIn(QuorlListener.getDispatchedMsgHandle()));
            assertEquals(0, QuorlListener.getDispatchedMsgHandle());
        }
    }

    @Test
    void aMessageForgetsAListenerThatIsDestroyed() {
        long kept;
        QuorlMsg natives = new QuorlMsg();
        try (QuorlListener listener = silent("a")) {
            send("a", 7);
            assertSame(listener, dispatched());
            kept = QuorlListener.getDispatchedMsgHandle();
            assertSame(listener, natives.quorlMsg_GetEvent(kept));
        }
        // The machine uses the references that the listeners before have given back.
        for (int i = 0; i < 100; i++) {
            try (QuorlListener later = silent("b"); QuorlTimer timer = new QuorlTimer(queue, NativesTest.NEVER, t -> {})) {
                assertNull(natives.quorlMsg_GetEvent(kept));
            }
        }
        QuorlMsg.quorlMsg_Destroy(kept, null);
        natives.close();
    }

    @Test
    void aNullSubjectReachesTheLibraryAsNull() throws Exception {
        try (QuorlListener listener = silent("a")) {
            int before = SoakTest.settledReferences();
            for (int i = 0; i < 100; i++) {
                assertStatus(QuorlException.INVALID_SUBJECT,
                        () -> listener.quorlEvent_CreateListener(queue.id(), transport.id(), null, 0));
                assertStatus(QuorlException.INVALID_QUEUE,
                        () -> listener.quorlEvent_CreateListener(UNKNOWN, transport.id(), new byte[] {'a'}, 1));
            }
            assertTrue(SoakTest.settledReferences() < before + 50, "a refused listener leaves no reference");
        }
    }

    @Test
    void ofTwoMessagesWithoutAFetchTheSecondIsThere() {
        try (QuorlListener listener = silent("a")) {
            send("a", 1);
            send("a", 2);
            dispatched();
            long first = QuorlListener.getDispatchedMsgHandle();
            assertEquals(1, numberIn(first));
            send("a", 3);
            dispatched();
            dispatched();
            assertEquals(3, numberIn(QuorlListener.getDispatchedMsgHandle()));
            assertEquals(0, QuorlListener.getDispatchedMsgHandle());
        }
    }

    // ---- queues and groups --------------------------------------------------------------------------------------------

    @Test
    void eachTimeOutHasAnObjectOfItsOwn() {
        try (QuorlQueueGroup group = new QuorlQueueGroup()) {
            group.add(queue);
            Object first = dispatched();
            Object second = dispatched();
            Object third = QuorlQueueGroup.quorlQueueGroup_TimedDispatch(group.id(), 0);
            assertSame(QuorlEvent.class, first.getClass());
            assertSame(QuorlEvent.class, third.getClass());
            assertNotSame(first, second);
            assertNotSame(second, third);
        }
    }

    @Test
    void anEmptyNameReadsAsNone() {
        QuorlQueue.quorlQueue_SetName(queue.id(), new byte[] {'q'}, 1);
        assertArrayEquals(new byte[] {'q'}, QuorlQueue.quorlQueue_GetName(queue.id()));
        QuorlQueue.quorlQueue_SetName(queue.id(), new byte[0], 0);
        assertNull(QuorlQueue.quorlQueue_GetName(queue.id()));
        assertNull(QuorlQueue.quorlQueue_GetName(UNKNOWN));
    }

    @Test
    void unknownQueuesAndGroupsAreAnsweredQuietlyOrWithTheirStatus() {
        assertFalse(QuorlQueueGroup.quorlQueueGroup_Destroy(UNKNOWN));
        QuorlQueue.quorlQueue_Destroy(UNKNOWN);
        assertStatus(QuorlException.INVALID_QUEUE, () -> QuorlQueue.quorlQueue_TimedDispatch(UNKNOWN, 0));
        assertStatus(QuorlException.INVALID_QUEUE_GROUP, () -> QuorlQueueGroup.quorlQueueGroup_TimedDispatch(UNKNOWN, 0));
        assertStatus(QuorlException.INVALID_QUEUE, () -> QuorlQueue.quorlQueue_GetCount(UNKNOWN));
        assertStatus(QuorlException.INVALID_QUEUE, () -> QuorlQueue.quorlQueue_SetPriority(UNKNOWN, 1));
        assertStatus(QuorlException.INVALID_QUEUE, () -> QuorlQueue.quorlQueue_SetLimitPolicy(UNKNOWN, 0, 0, 0));
    }

    @Test
    void limitsThatMakeNoSenseAreRefused() {
        for (int[] bad : new int[][] {{1, 0, 0}, {1, 0, 1}, {1, 5, 6}, {1, 5, 0}, {4, 5, 1}, {-1, 5, 1}, {0, 5, 1}}) {
            assertStatus(QuorlException.INVALID_ARG,
                    () -> QuorlQueue.quorlQueue_SetLimitPolicy(queue.id(), bad[0], bad[1], bad[2]));
        }
        // Without a sign these are numbers like any others.
        QuorlQueue.quorlQueue_SetPriority(queue.id(), -1);
        assertEquals(0xFFFF_FFFFL, queue.getPriority());
        QuorlQueue.quorlQueue_SetLimitPolicy(queue.id(), QuorlQueue.DISCARD_NEW, -1, -1);
        assertEquals(0xFFFF_FFFFL, queue.getMaxEvents());
    }

    @Test
    void groupsOfGroupsAndQueuesInManyGroups() {
        try (QuorlQueueGroup first = new QuorlQueueGroup(); QuorlQueueGroup second = new QuorlQueueGroup();
                QuorlListener listener = silent("a")) {
            assertStatus(QuorlException.INVALID_QUEUE, () -> QuorlQueueGroup.quorlQueueGroup_Add(first.id(), second.id()));
            first.add(queue);
            second.add(queue);
            assertStatus(QuorlException.ALREADY_EXISTS, () -> second.add(queue));
            send("a", 1);
            send("a", 2);
            assertTrue(first.poll() && second.poll() && !first.poll());
            queue.close();
            assertThrows(QuorlClosedException.class, () -> first.add(queue));
            assertFalse(first.poll());
        }
    }

    @Test
    void waitsThatAreNoNumbersAreRefused() {
        assertStatus(QuorlException.INVALID_ARG, () -> QuorlQueue.quorlQueue_TimedDispatch(queue.id(), Double.NaN));
        try (QuorlListener listener = silent("a")) {
            send("a", 1);
            assertSame(listener, QuorlQueue.quorlQueue_TimedDispatch(queue.id(), Double.POSITIVE_INFINITY));
            send("a", 2);
            assertSame(listener, QuorlQueue.quorlQueue_TimedDispatch(queue.id(), Double.NEGATIVE_INFINITY));
        }
    }

    // ---- timers -------------------------------------------------------------------------------------------------------

    @Test
    void unknownTimersAreAnswered() {
        assertEquals(0.0, QuorlTimer.quorlEvent_GetInterval(UNKNOWN));
        assertStatus(QuorlException.INVALID_EVENT, () -> QuorlTimer.quorlEvent_ResetTimerInterval(UNKNOWN, 1));
    }

    @Test
    void intervalsThatAreNoneAreRefused() {
        try (QuorlTimer timer = new QuorlTimer(queue, Duration.ofDays(1), t -> {}); QuorlListener listener = silent("a")) {
            for (double bad : new double[] {-1, Double.NaN, Double.POSITIVE_INFINITY, Double.NEGATIVE_INFINITY}) {
                assertStatus(QuorlException.INVALID_TIME_INTERVAL,
                        () -> QuorlTimer.quorlEvent_ResetTimerInterval(timer.id(), bad));
                assertStatus(QuorlException.INVALID_TIME_INTERVAL, () -> timer.quorlEvent_CreateTimer(queue.id(), bad));
            }
            assertEquals(86_400.0, QuorlTimer.quorlEvent_GetInterval(timer.id()), "a refused interval changes nothing");
            // A listener is an event, but no timer.
            assertEquals(0.0, QuorlTimer.quorlEvent_GetInterval(listener.id()));
            assertStatus(QuorlException.INVALID_EVENT, () -> QuorlTimer.quorlEvent_ResetTimerInterval(listener.id(), 1));
        }
    }

    @Test
    void aTimerLeavesTheMessageOfAListenerAlone() {
        try (QuorlListener listener = silent("a")) {
            send("a", 7);
            assertSame(listener, dispatched());
            try (QuorlTimer timer = new QuorlTimer(queue, Duration.ZERO, t -> {})) {
                assertSame(timer, QuorlQueue.quorlQueue_TimedDispatch(queue.id(), 10));
                assertEquals(7, numberIn(QuorlListener.getDispatchedMsgHandle()));
            }
        }
    }

    // ---- vector listeners ---------------------------------------------------------------------------------------------

    @Test
    void aThreadWithoutVectorsHasNone() throws Exception {
        new Worker(() -> {
            long[] handles = {1, 2, 3};
            assertEquals(0, QuorlVectorListener.getDispatchedMsgsHandle(handles));
            assertArrayEquals(new long[] {1, 2, 3}, handles);
        }).join();
    }

    @Test
    void aVectorIsThereUntilTheNext() {
        try (QuorlVectorListener listener = silentVector("a")) {
            for (int i = 0; i < 200; i++) {
                send("a", i);
            }
            assertSame(listener, dispatched());
            long[] handles = new long[QuorlVectorListener.BATCH_MAX];
            assertEquals(128, QuorlVectorListener.getDispatchedMsgsHandle(handles));
            long[] again = new long[QuorlVectorListener.BATCH_MAX];
            assertEquals(128, QuorlVectorListener.getDispatchedMsgsHandle(again));
            assertArrayEquals(handles, again);
            for (int i = 0; i < 128; i++) {
                assertEquals(i, numberIn(handles[i]));
            }
            assertSame(listener, dispatched());
            assertEquals(72, QuorlVectorListener.getDispatchedMsgsHandle(handles));
            for (int i = 0; i < 72; i++) {
                assertEquals(128 + i, numberIn(handles[i]));
            }
        }
    }

    @Test
    void anArrayThatIsTooShortIsTheMachinesToRefuse() {
        try (QuorlVectorListener listener = silentVector("a")) {
            send("a", 1);
            send("a", 2);
            assertSame(listener, dispatched());
            assertThrows(ArrayIndexOutOfBoundsException.class, () -> QuorlVectorListener.getDispatchedMsgsHandle(new long[1]));
            long[] handles = new long[2];
            assertEquals(2, QuorlVectorListener.getDispatchedMsgsHandle(handles));
            assertEquals(1, numberIn(handles[0]));
            assertEquals(2, numberIn(handles[1]));
        }
    }

    // ---- events and thread keys ---------------------------------------------------------------------------------------

    @Test
    void anEventIsDestroyedOnce() throws Exception {
        int before = SoakTest.settledReferences();
        for (int i = 0; i < 50; i++) {
            QuorlTimer timer = new QuorlTimer(queue, Duration.ofDays(1), t -> {});
            int id = timer.id();
            timer.close();
            QuorlEvent.quorlEvent_Destroy(id);
            QuorlEvent.quorlEvent_Destroy(id);
            QuorlEvent.quorlEvent_Destroy(queue.id());
        }
        assertTrue(SoakTest.settledReferences() < before + 25, "references are left");
        assertEquals(0, queue.getCount(), "no id of another kind is taken for an event");
    }

    @Test
    void aSignalEndsTheWaitOfItsThread() throws Exception {
        long[] key = new long[1];
        Worker waiter = new Worker(() -> {
            key[0] = QuorlDispatcher.quorlDispatchable_SetThreadKey();
            synchronized (key) {
                key.notifyAll();
            }
            try {
                assertStatus(QuorlException.INTR, () -> QuorlQueue.quorlQueue_TimedDispatch(queue.id(), -1));
            } finally {
                QuorlDispatcher.quorlDispatchable_ClearThreadKey(key[0]);
            }
        });
        synchronized (key) {
            while (key[0] == 0) {
                key.wait(LIMIT.toMillis());
            }
        }
        QuorlDispatcher.quorlDispatchable_Signal(queue.id(), key[0]);
        waiter.join();
    }

    // ---- transports ---------------------------------------------------------------------------------------------------

    @Test
    void aRequestThatTimesOutHasNoReplyAndNoException() {
        try (QuorlMsg request = new QuorlMsg("nobody")) {
            for (double seconds : new double[] {0, 1e-9, 0.01}) {
                assertEquals(0, QuorlTransport.quorlTransport_SendRequest(transport.id(), request.ownHandle(), seconds, null));
            }
        }
    }

    @Test
    void anInboxNeedsItsRoom() {
        assertThrows(ArrayIndexOutOfBoundsException.class,
                () -> QuorlTransport.quorlTransport_CreateInbox(transport.id(), new byte[254]));
        byte[] inbox = new byte[300];
        Arrays.fill(inbox, (byte) 1);
        int length = QuorlTransport.quorlTransport_CreateInbox(transport.id(), inbox);
        assertTrue(new String(inbox, 0, length, StandardCharsets.UTF_8).startsWith("_INBOX."));
        assertEquals(0, inbox[254]);
        assertEquals(1, inbox[255], "255 bytes are written and no more");
    }

    @Test
    void anEmptyDescriptionIsOne() {
        QuorlTransport.quorlTransport_SetDescription(transport.id(), new byte[0], 0);
        assertStatus(QuorlException.INVALID_TRANSPORT,
                () -> QuorlTransport.quorlTransport_SetDescription(UNKNOWN, new byte[0], 0));
        assertStatus(QuorlException.INVALID_TIME_INTERVAL,
                () -> QuorlTransport.quorlTransport_RequestReliability(transport.id(), Double.NaN));
    }
}
