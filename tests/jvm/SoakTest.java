package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.lang.management.ManagementFactory;
import java.lang.ref.WeakReference;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import javax.management.ObjectName;
import org.junit.jupiter.api.Test;

/** A million messages leave nothing behind: no reference in the machine, no message in the library. */
class SoakTest extends OpenLibrary {
    private static final int WARM = 10_000;
    private static final int COUNT = Integer.getInteger("quorl.soak.count", 1_000_000);

    /** What the machine itself says at the end of a list of its threads. */
    private static final Pattern GLOBAL_REFERENCES = Pattern.compile("JNI global refs: (\\d+)");

    /** The machine holds one more while it compiles a method, so the least of several looks is the number. */
    static int settledReferences() throws Exception {
        int least = globalReferences();
        for (int i = 0; i < 20; i++) {
            least = Math.min(least, globalReferences());
        }
        return least;
    }

    /** The machine itself may have let go of some meanwhile. */
    static void awaitAtMost(int number) throws Exception {
        int least = settledReferences();
        for (long end = System.nanoTime() + LIMIT.toNanos(); least > number && System.nanoTime() < end;) {
            least = settledReferences();
        }
        assertTrue(least <= number, least + " global references instead of " + number);
    }

    private static int globalReferences() throws Exception {
        String text = (String) ManagementFactory.getPlatformMBeanServer().invoke(
                new ObjectName("com.sun.management:type=DiagnosticCommand"), "threadPrint", new Object[] {new String[0]},
                new String[] {String[].class.getName()});
        Matcher found = GLOBAL_REFERENCES.matcher(text);
        assertTrue(found.find(), text);
        return Integer.parseInt(found.group(1));
    }

    /** The handles that were seen; a handle that is dead has no fields, one that lives has some. */
    private static final class Handles {
        private final long[] seen;
        private int count;

        Handles(int most) {
            seen = new long[most];
        }

        void add(QuorlMsg message) {
            seen[count++] = message.ownHandle();
        }

        long alive() {
            long alive = 0;
            for (int i = 0; i < count; i++) {
                alive += QuorlMsg.quorlMsg_GetNumFields(seen[i], null) == 0 ? 0 : 1;
            }
            return alive;
        }
    }

    @Test
    void aMillionMessagesLeaveNothingBehind() throws Exception {
        Handles handles = new Handles(2 * (WARM + COUNT));
        long[] sum = new long[2];
        int[] batches = new int[1];
        try (QuorlListener listener = new QuorlListener(queue, transport, "soak", (l, m) -> {
            handles.add(m);
            sum[0] += m.getI64("n");
            sum[1] += m.getString("text").length();
            if (m.getI64("n") % 1000 == 0) {
                m.keep();
                m.close();
            }
        }); QuorlVectorListener batched = new QuorlVectorListener(queue, transport, "soak", (l, messages) -> batches[0] += messages.size())) {
            exchange(handles, 0, WARM);
            assertEquals(0, handles.alive());
            int before = settledReferences();
            exchange(handles, WARM, WARM + COUNT);
            assertEquals(0, handles.alive(), "messages alive");
            awaitAtMost(before);
        }
        long all = WARM + COUNT;
        assertEquals(List.of(all * (all - 1) / 2, all * 4, all), List.of(sum[0], sum[1], (long) batches[0]));
    }

    private void exchange(Handles handles, int from, int to) throws Exception {
        for (int n = from; n < to; n++) {
            try (QuorlMsg message = new QuorlMsg("soak").addI64("n", n).addString("text", "text")) {
                handles.add(message);
                transport.send(message);
            }
            while (n % 50 == 49 && queue.poll()) {}
        }
        while (queue.poll()) {}
    }

    @Test
    void eventsLeaveNothingBehind() throws Exception {
        int before = settledReferences();
        try (QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
            for (int i = 0; i < 2_000; i++) {
                try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {});
                        QuorlVectorListener vector = new QuorlVectorListener(queue, transport, "a", (l, m) -> {});
                        QuorlTimer timer = new QuorlTimer(queue, Duration.ZERO, t -> {})) {
                    send("a", i);
                }
                QuorlMsgTest.assertStatus(QuorlException.INVALID_SUBJECT,
                        () -> new QuorlListener(queue, transport, "..", (l, m) -> {}));
            }
        }
        awaitAtMost(before);
    }

    @Test
    void theLastCloseLetsGoOfForgottenEvents() throws Exception {
        int before = settledReferences();
        try (Quorl nested = Quorl.open()) {
            for (int i = 0; i < 100; i++) {
                new QuorlListener(queue, transport, "a", (l, m) -> {});
                new QuorlTimer(queue, Duration.ofDays(1), t -> {});
            }
            // The machine itself may have let go of a few meanwhile.
            assertTrue(settledReferences() > before + 150, "each of 200 events holds one");
        }
        quorl.close();
        awaitAtMost(before);
    }

    /** Rounds of opening and closing, with everything that can be left to the last close. */
    private static final int ROUNDS = Integer.getInteger("quorl.soak.rounds", 10_000);

    /** Objects of the program that were seen and are still there. */
    private static final class Seen {
        private final List<WeakReference<Object>> all = new ArrayList<>();

        <T> T add(T object) {
            all.add(new WeakReference<>(object));
            return object;
        }

        Map<String, Integer> left() {
            Map<String, Integer> left = new TreeMap<>();
            all.removeIf(each -> each.get() == null);
            for (WeakReference<Object> each : all) {
                Object object = each.get();
                if (object != null) {
                    left.merge(object.getClass().getSimpleName(), 1, Integer::sum);
                }
            }
            return left;
        }
    }

    private static void round(Seen seen, int number) throws Exception {
        Quorl library = seen.add(Quorl.open());
        QuorlQrdTransport own = seen.add(new QuorlQrdTransport());
        QuorlQueue first = seen.add(new QuorlQueue());
        QuorlQueueGroup group = seen.add(new QuorlQueueGroup());
        group.add(first);
        byte[] held = seen.add(new byte[1]);
        seen.add(new QuorlListener(first, own, "a", (l, m) -> held[0]++));
        seen.add(new QuorlVectorListener(first, own, "a", (l, m) -> held[0]++));
        seen.add(new QuorlTimer(first, Duration.ofDays(1), t -> held[0]++));
        seen.add(new QuorlListener(first, own, "b"));
        try (QuorlMsg message = seen.add(new QuorlMsg("a"))) {
            own.send(message);
            first.poll();
            if (number % 50 == 0) {
                seen.add(new QuorlDispatcher(group));
                seen.add(own.requestAsync(message.setSendSubject("nobody"), Duration.ofDays(1)));
            }
        }
        switch (number % 4) {
            case 0:
                first.close();
                break;
            case 1:
                own.close();
                group.close();
                break;
            case 2:
                // The last close may come from a handler, also of what it destroys.
                seen.add(new QuorlTimer(first, Duration.ZERO, t -> library.close()));
                while (Quorl.isOpen()) {
                    try {
                        first.dispatch(LIMIT);
                    } catch (QuorlClosedException e) {
                        break;
                    }
                }
                break;
            default:
        }
        library.close();
    }

    @Test
    void roundsOfOpeningLeaveNoObject() throws Exception {
        queue.close();
        transport.close();
        quorl.close();
        Seen seen = new Seen();
        for (int i = 0; i < 100; i++) {
            round(seen, i);
        }
        int before = settledReferences();
        for (int i = 0; i < ROUNDS; i++) {
            round(seen, i);
        }
        for (long end = System.nanoTime() + LIMIT.toNanos(); !seen.left().isEmpty() && System.nanoTime() < end;) {
            System.gc();
        }
        assertEquals(Map.of(), seen.left());
        awaitAtMost(before);
    }
}
