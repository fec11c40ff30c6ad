package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.lang.invoke.MethodHandle;
import java.lang.invoke.MethodHandles;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.time.Duration;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Comparator;
import java.util.List;
import java.util.Random;
import java.util.Set;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;

/** The natives themselves, given what the classes over them never give: none may bring the machine down. */
class NativesTest extends OpenLibrary {
    private static final int COUNT = Integer.getInteger("quorl.natives.count", 100_000);
    /** The interval of a timer that must not fire while a test runs. */
    static final Duration NEVER = Duration.ofDays(1);

    private static final long SEED = Long.getLong("quorl.seed", 20240229);

    /** A native with the position of the argument that is made up. */
    private static final class Native {
        final Method method;
        final MethodHandle call;
        final Object[] arguments;
        int madeUp = -1;

        Native(Method method, Object receiver, Random random) throws IllegalAccessException {
            this.method = method;
            MethodHandle handle = MethodHandles.lookup().unreflect(method);
            if (!Modifier.isStatic(method.getModifiers())) {
                handle = handle.bindTo(receiver);
            }
            Class<?>[] types = method.getParameterTypes();
            arguments = new Object[types.length];
            for (int i = 0; i < types.length; i++) {
                arguments[i] = plausible(types[i], i > 0 && types[i - 1].isArray(), random);
            }
            call = handle.asSpreader(Object[].class, types.length)
                    .asType(java.lang.invoke.MethodType.methodType(Object.class, Object[].class));
        }

        private static Object plausible(Class<?> type, boolean isLength, Random random) {
            if (type == int.class) {
                return isLength ? 4 : random.nextInt(8);
            }
            if (type == long.class) {
                return random.nextLong();
            }
            if (type == short.class) {
                return (short) random.nextInt(4);
            }
            if (type == byte.class) {
                return (byte) 1;
            }
            if (type == boolean.class) {
                return true;
            }
            if (type == float.class) {
                return 1.5f;
            }
            if (type == double.class) {
                return 0.0;
            }
            if (type == String.class) {
                return "name";
            }
            if (type == byte[].class) {
                return Arrays.copyOf(new byte[] {'n', 'a', 'm', 'e'}, 255);
            }
            if (type == Object[].class) {
                byte[] text = {'t'};
                return new Object[] {text, text, text, text};
            }
            return type.isArray() ? java.lang.reflect.Array.newInstance(type.getComponentType(), 4) : null;
        }

        /** True when it answered, false when it threw. Anything else but an exception of these two kinds is a failure. */
        boolean run(Object value) throws Throwable {
            arguments[madeUp] = value;
            try {
                Object unused = (Object) call.invokeExact(arguments);
                return true;
            } catch (QuorlException e) {
                assertTrue(e.getStatus() > 0, method::toString);
                return false;
            }
        }
    }

    private static List<Native> nativesOf(Class<?> type, Object receiver, Class<?> madeUp, Set<String> without, Random random)
            throws IllegalAccessException {
        List<Native> natives = new ArrayList<>();
        Method[] methods = type.getDeclaredMethods();
        Arrays.sort(methods, Comparator.comparing(Method::toString));
        for (Method method : methods) {
            int position = Arrays.asList(method.getParameterTypes()).indexOf(madeUp);
            if (Modifier.isNative(method.getModifiers()) && position >= 0 && !without.contains(method.getName())) {
                Native found = new Native(method, receiver, random);
                found.madeUp = position;
                natives.add(found);
            }
        }
        return natives;
    }

    @Test
    void noIdIsTakenForAnObject() throws Exception {
        Random random = new Random(SEED);
        List<Native> natives = new ArrayList<>();
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {});
                QuorlTimer timer = new QuorlTimer(queue, NEVER, t -> {});
                QuorlVectorListener vector = new QuorlVectorListener(queue, transport, "a", (l, m) -> {})) {
            natives.addAll(nativesOf(Quorl.class, null, int.class,
                    Set.of("quorl_SetQRParameters", "quorl_OpenEx"), random));
            natives.addAll(nativesOf(QuorlQueue.class, null, int.class, Set.of(), random));
            natives.addAll(nativesOf(QuorlQueueGroup.class, null, int.class, Set.of(), random));
            natives.addAll(nativesOf(QuorlEvent.class, null, int.class, Set.of(), random));
            natives.addAll(nativesOf(QuorlListener.class, listener, int.class, Set.of(), random));
            natives.addAll(nativesOf(QuorlTimer.class, timer, int.class, Set.of(), random));
            natives.addAll(nativesOf(QuorlVectorListener.class, vector, int.class, Set.of(), random));
            natives.addAll(nativesOf(QuorlTransport.class, null, int.class, Set.of(), random));
            // Create takes lengths, no ids.
            natives.addAll(nativesOf(QuorlQrdTransport.class, null, int.class, Set.of("quorlTransport_Create"), random));
            assertEquals(1 + 11 + 4 + 1 + 1 + 3 + 1 + 9 + 1, natives.size());
            // On a thread of its own: exceptions cost by the depth of the stack.
            new Worker(() -> each(natives, i -> {
                int id = i < 64 ? 1 << i : random.nextInt();
                for (int type = 1; type <= 5; type++) {
                    if (Quorl.quorl_IsValid(id, type)) {
                        return null;
                    }
                }
                return id;
            })).joinWithin(COUNT);
            assertEquals(0, queue.getCount());
            send("a", 1);
            assertTrue(queue.poll() && queue.poll(), "what was alive still is");
        }
    }

    @Test
    void noHandleIsTakenForAMessage() throws Exception {
        Random random = new Random(SEED);
        // GetEvent's failure is not defined; the two others take no handle of a message first.
        List<Native> natives = nativesOf(QuorlMsg.class, null, long.class, Set.of("quorlMsg_GetEvent"), random);
        natives.addAll(nativesOf(QuorlMsgView.class, null, long.class, Set.of(), random));
        natives.addAll(nativesOf(QuorlTransport.class, null, long.class, Set.of(), random));
        for (Native each : natives) {
            if (each.method.getDeclaringClass() == QuorlTransport.class) {
                each.arguments[0] = transport.id();
            }
        }
        assertEquals(202 - 4 + 1 + 3, natives.size());
        try (QuorlMsg live = new QuorlMsg("a").addI32("n", 5); QuorlMsg dead = new QuorlMsg()) {
            dead.close();
            long near = live.ownHandle();
            long last = dead.ownHandle();
            new Worker(() -> each(natives, i -> {
                long handle = i == 0 ? 0 : i == 1 ? last : i < 66 ? near ^ 1L << (i - 2) : i < 130 ? 1L << (i - 66)
                        : i < 1000 ? near + i - 500 : random.nextLong();
                return handle == near ? null : handle;
            })).joinWithin(COUNT);
            assertEquals("{n=5}", live.toString().replaceAll("\\s", ""), "what was alive still is");
            assertEquals(5, live.getI32("n"));
        }
    }

    private interface MakeUp {
        /** Value number i, null to leave it out. */
        Object value(int i);
    }

    /** How many natives see each value. The first values, which are the devious ones, are seen by all. */
    private static final int SHARE = 20;

    private static final int DEVIOUS = 256;

    private static void each(List<Native> natives, MakeUp values) throws Exception {
        int next = 0;
        for (int i = 0; i < COUNT; i++) {
            Object value = values.value(i);
            if (value == null) {
                continue;
            }
            for (int n = 0; n < (i < DEVIOUS ? natives.size() : SHARE); n++) {
                Native each = natives.get(next++ % natives.size());
                try {
                    each.run(value);
                } catch (Throwable e) {
                    throw new AssertionError(each.method + " with " + value, e);
                }
            }
        }
    }

    // ---- lengths and texts that the classes never give ------------------------------------------------------------

    private static final byte[] NAME = {'n'};

    private static void assertStatus(int status, Executable call) {
        QuorlMsgTest.assertStatus(status, call);
    }

    private static void assertBounds(Executable call) {
        assertThrows(IndexOutOfBoundsException.class, call);
    }

    // A copy that fails leaves its exception pending over the calls that follow, of which a checking machine warns.
    @Test
    @Tag("unchecked")
    void arraysShorterThanStated() {
        try (QuorlMsg message = new QuorlMsg("a.b").setReplySubject("c.d").addString("s", "text").addI32Array("i", new int[4])
                .addOpaque("o", new byte[4]).addXml("x", new byte[4]).addStringArray("t", new String[] {"a"})) {
            long m = message.ownHandle();
            short id = 0;
            assertBounds(() -> QuorlMsg.quorlMsg_AddI32(m, NAME, 2, 1, id, null));
            assertBounds(() -> QuorlMsg.quorlMsg_AddI32(m, NAME, 1_000_000, 1, id, null));
            assertBounds(() -> QuorlMsg.quorlMsg_UpdateString(m, NAME, 1, NAME, 2, id, null));
            assertBounds(() -> QuorlMsg.quorlMsg_AddString(m, NAME, 2, NAME, 1, id, null));
            assertBounds(() -> QuorlMsg.quorlMsg_AddString(m, NAME, 2, NAME, 2, id, null));
            for (int length : new int[] {2, 126, 127, 254, 255, 100_000, -1, Integer.MIN_VALUE}) {
                assertBounds(() -> QuorlMsg.quorlMsg_AddOpaque(m, NAME, length, NAME, 1, id, null));
                assertBounds(() -> QuorlMsg.quorlMsg_UpdateXml(m, NAME, length, NAME, 1, id, null));
                assertBounds(() -> QuorlMsg.quorlMsg_AddUserType(m, (short) 200, NAME, length, NAME, 1, id, null));
                assertBounds(() -> QuorlMsg.quorlMsg_AddI8Array(m, NAME, length, NAME, 1, id, null));
                assertBounds(() -> QuorlMsg.quorlMsg_UpdateF64Array(m, NAME, length, new double[1], 1, id, null));
                assertBounds(() -> QuorlMsg.quorlMsg_AddU16Array(m, NAME, length, new int[1], 1, id, null));
                assertBounds(() -> QuorlMsg.quorlMsg_UpdateStringArray(m, NAME, length, new Object[] {NAME}, 1, id, null));
                assertBounds(() -> QuorlMsg.quorlMsg_AddMsgArray(m, NAME, length, new long[] {m}, 1, id, null));
                assertBounds(() -> QuorlQrdTransport.quorlTransport_Create(NAME, length, NAME, 1, NAME, 1));
            }
            assertBounds(() -> QuorlMsg.quorlMsg_AddStringArrayUTF(m, "n", new Object[] {NAME}, 2, id, null));
            assertBounds(() -> Quorl.quorl_SetQRParameters(new String[] {"a=b"}, 2));
            assertBounds(() -> QuorlMsg.quorlMsg_GetI32(m, NAME, 300, id, null));
            assertBounds(() -> QuorlMsg.quorlMsg_GetFieldTypeAndIndex(m, NAME, 300, id, null));
            assertBounds(() -> QuorlMsg.quorlMsg_SetSendSubject(m, NAME, 300, null));
            assertBounds(() -> QuorlMsg.quorlMsg_SetReplySubject(m, NAME, 2, null));
            assertBounds(() -> QuorlMsg.quorlMsg_AddStringArray(m, NAME, 1, new Object[] {NAME}, 2, id, null));
            assertBounds(() -> QuorlMsg.quorlMsg_GetSendSubject(m, new byte[2], null));
            assertBounds(() -> QuorlMsg.quorlMsg_GetReplySubject(m, new byte[0], null));
            assertBounds(() -> QuorlMsg.quorlMsg_GetString(m, 0, new byte[3], null));
            assertBounds(() -> QuorlMsg.quorlMsg_GetI32Array(m, 1, new int[3], null));
            assertBounds(() -> QuorlMsg.quorlMsg_GetOpaque(m, 2, new byte[3], null));
            assertBounds(() -> QuorlMsg.quorlMsg_GetXml(m, 3, new byte[3], null));
            assertBounds(() -> QuorlQueue.quorlQueue_SetName(queue.id(), NAME, 2));
            assertBounds(() -> QuorlTransport.quorlTransport_SetDescription(transport.id(), NAME, 2));
            assertBounds(() -> QuorlTransport.quorlTransport_CreateInbox(transport.id(), new byte[254]));
            assertBounds(() -> QuorlQrdTransport.quorlTransport_Create(NAME, 2, null, 0, null, 0));
        }
    }

    @Test
    void negativeLengths() {
        try (QuorlMsg message = new QuorlMsg("a.b").addI32("n", 1)) {
            long m = message.ownHandle();
            short id = 0;
            for (int length : new int[] {-1, -2, -255, -256, Integer.MIN_VALUE}) {
                quiet(() -> QuorlMsg.quorlMsg_AddI32(m, NAME, length, 1, id, null));
                quiet(() -> QuorlMsg.quorlMsg_UpdateString(m, NAME, 1, NAME, length, id, null));
                quiet(() -> QuorlMsg.quorlMsg_GetI32(m, NAME, length, id, null));
                quiet(() -> QuorlMsg.quorlMsg_GetFieldTypeAndIndex(m, NAME, length, id, null));
                quiet(() -> QuorlMsg.quorlMsg_GetFieldInstanceTypeAndIndex(m, 1, NAME, length, null));
                quiet(() -> QuorlMsg.quorlMsg_RemoveFieldEx(m, NAME, length, id, null));
                quiet(() -> QuorlMsg.quorlMsg_RemoveFieldInstance(m, NAME, length, 1, null));
                quiet(() -> QuorlMsg.quorlMsg_SetSendSubject(m, NAME, length, null));
                quiet(() -> QuorlMsg.quorlMsg_SetReplySubject(m, NAME, length, null));
                quiet(() -> QuorlMsg.quorlMsg_AddStringArray(m, NAME, 1, new Object[] {NAME}, length, id, null));
                quiet(() -> QuorlMsg.quorlMsg_AddMsgArray(m, NAME, 1, new long[] {m}, length, id, null));
                quiet(() -> QuorlMsg.quorlMsg_AddU8Array(m, NAME, 1, new short[1], length, id, null));
                quiet(() -> QuorlQueue.quorlQueue_SetName(queue.id(), NAME, length));
                quiet(() -> QuorlTransport.quorlTransport_SetDescription(transport.id(), NAME, length));
                quiet(() -> QuorlTransport.quorlTransport_Sendv(transport.id(), new long[] {m}, length, null));
                quiet(() -> QuorlQrdTransport.quorlTransport_Create(NAME, length, null, 0, null, 0));
                quiet(() -> Quorl.quorl_SetQRParameters(new String[] {"a=b"}, length));
            }
            assertEquals(1, message.getI32("n"));
        }
    }

    /** Whatever it answers or throws, it comes back. */
    private static void quiet(Executable call) {
        try {
            call.execute();
        } catch (QuorlException | IndexOutOfBoundsException | NegativeArraySizeException | OutOfMemoryError e) {
            // An answer.
        } catch (Throwable e) {
            throw new AssertionError(e);
        }
    }

    @Test
    void namesAndSubjectsThatAreTooLong() {
        byte[] longName = new byte[100_000];
        Arrays.fill(longName, (byte) 'n');
        String text = "n".repeat(100_000);
        short id = 0;
        try (QuorlMsg message = new QuorlMsg()) {
            long m = message.ownHandle();
            for (int length : new int[] {128, 254, 255, 256, 1000, 100_000}) {
                assertStatus(QuorlException.INVALID_NAME, () -> QuorlMsg.quorlMsg_AddI32(m, longName, length, 1, id, null));
                assertStatus(QuorlException.INVALID_NAME,
                        () -> QuorlMsg.quorlMsg_AddStringArray(m, longName, length, new Object[] {NAME}, 1, id, null));
                assertStatus(QuorlException.INVALID_NAME,
                        () -> QuorlMsg.quorlMsg_UpdateI32Array(m, longName, length, new int[1], 1, id, null));
                assertStatus(QuorlException.INVALID_NAME,
                        () -> QuorlMsg.quorlMsg_AddOpaque(m, longName, length, NAME, 1, id, null));
                assertThrows(QuorlException.class,
                        () -> QuorlMsg.quorlMsg_AddMsgArray(m, longName, length, new long[] {m}, 1, id, null));
                if (length >= 255) {
                    assertStatus(QuorlException.INVALID_SUBJECT,
                            () -> QuorlMsg.quorlMsg_SetSendSubject(m, longName, length, null));
                    assertStatus(QuorlException.INVALID_SUBJECT,
                            () -> QuorlMsg.quorlMsg_SetReplySubject(m, longName, length, null));
                }
            }
            assertStatus(QuorlException.INVALID_NAME, () -> QuorlMsg.quorlMsg_AddI32UTF(m, text, 1, id, null));
            assertStatus(QuorlException.INVALID_NAME, () -> QuorlMsg.quorlMsg_AddStringUTF(m, text, "a", id, null));
            assertStatus(QuorlException.INVALID_SUBJECT, () -> QuorlMsg.quorlMsg_SetSendStringSubject(m, text, null));
            assertEquals(0, message.getFieldCount());
            assertNull(message.getSendSubject());
        }
    }

    @Test
    void textFormsInTheBasicPlaneAgreeWithByteForms() {
        try (QuorlMsg message = new QuorlMsg()) {
            long m = message.ownHandle();
            short id = 0;
            QuorlMsg.quorlMsg_AddStringUTF(m, "名前", "値 é", id, null);
            QuorlMsg.quorlMsg_SetSendStringSubject(m, "日本.é", null);
            QuorlMsg.quorlMsg_SetReplyStringSubject(m, "é", null);
            assertEquals("値 é", message.getString("名前"));
            assertEquals("日本.é", message.getSendSubject());
            assertEquals("日本.é", QuorlMsg.quorlMsg_GetSendSubjectUTF8(m, null));
            assertEquals("é", QuorlMsg.quorlMsg_GetReplySubjectUTF8(m, null));
            assertEquals("値 é", QuorlMsg.quorlMsg_GetStringUTF8(m, 0, null));
        }
    }

    @Test
    void quietAnswers() {
        assertEquals(0, QuorlMsg.quorlMsg_GetNumFields(0, null));
        assertNull(QuorlMsg.quorlMsg_GetSendSubjectUTF8(0, null));
        QuorlMsg.quorlMsg_Destroy(0, null);
        QuorlQueue.quorlQueue_Destroy(0);
        QuorlEvent.quorlEvent_Destroy(0);
        QuorlTransport.quorlTransport_Destroy(0);
        assertNull(QuorlQueue.quorlQueue_GetName(0));
        assertTrue(!QuorlQueueGroup.quorlQueueGroup_Destroy(0));
        assertEquals(0, QuorlListener.getDispatchedMsgHandle());
        QuorlDispatcher.quorlDispatchable_Signal(0, 0);
        Object first = QuorlQueue.quorlQueue_TimedDispatch(queue.id(), 0);
        Object second = QuorlQueue.quorlQueue_TimedDispatch(queue.id(), 0);
        assertTrue(first.getClass() == QuorlEvent.class && first != second);
        ((QuorlEvent) first).close();
        try (QuorlMsg request = new QuorlMsg("nobody")) {
            assertEquals(0, QuorlTransport.quorlTransport_SendRequest(transport.id(), request.ownHandle(), 0, null));
        }
    }

    @Test
    void aVectorOfMessagesIsSentInOrder() {
        List<Integer> got = new ArrayList<>();
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> got.add(m.getI32("n")));
                QuorlMsg first = new QuorlMsg("a").addI32("n", 1); QuorlMsg second = new QuorlMsg("a").addI32("n", 2)) {
            long[] handles = {first.ownHandle(), second.ownHandle(), 12345};
            QuorlTransport.quorlTransport_Sendv(transport.id(), handles, 2, null);
            assertStatus(QuorlException.INVALID_MSG,
                    () -> QuorlTransport.quorlTransport_Sendv(transport.id(), handles, 3, null));
            while (queue.poll()) {}
        }
        assertEquals(List.of(1, 2), got, "a vector with a bad message is not sent at all");
    }
}
