package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;
import static org.junit.jupiter.api.Assertions.fail;

import java.io.IOException;
import java.lang.management.ManagementFactory;
import java.lang.reflect.Array;
import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.TreeSet;
import java.util.function.Function;
import java.util.function.Supplier;
import java.util.stream.Collectors;
import org.junit.jupiter.api.DynamicTest;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.TestFactory;

/**
 * Every native, called with right arguments and with wrong ones in each place: it answers or throws, and a machine that
 * checks each call of the bridge stays silent. What is called with what stands in natives.txt.
 */
class AllNativesTest extends OpenLibrary {
    private static final Path TABLE = Path.of(System.getProperty("quorl.source"), "tests", "jvm", "natives.txt");

    /** Whether the machine checks the bridge's calls. A second run has one that does not. */
    private static final boolean CHECKED =
            ManagementFactory.getRuntimeMXBean().getInputArguments().contains("-Xcheck:jni");

    private static final byte[] TEXT = {'t', 'e', 'x', 't'};

    // ---- the table ------------------------------------------------------------------------------------------------

    /** A line of the table with the method that it is about. */
    private static final class Row {
        final Method method;
        final List<String> roles;
        final boolean mayRefuse;

        Row(Method method, List<String> roles, boolean mayRefuse) {
            this.method = method;
            this.roles = roles;
            this.mayRefuse = mayRefuse;
        }
    }

    private static List<Method> declaredNatives(Class<?> type) {
        return Arrays.stream(type.getDeclaredMethods()).filter(m -> Modifier.isNative(m.getModifiers())).toList();
    }

    private static boolean takesArrayAndLength(String role) {
        return List.of("text", "text!", "elements", "strings", "messages", "parameters", "image").contains(nameOf(role));
    }

    private static String nameOf(String role) {
        return role.contains("=") ? role.substring(0, role.indexOf('=')) : role;
    }

    private static String valueOf(String role, String otherwise) {
        return role.contains("=") ? role.substring(role.indexOf('=') + 1) : otherwise;
    }

    private static List<Row> table() throws IOException, ClassNotFoundException {
        List<Row> rows = new ArrayList<>();
        for (String line : Files.readAllLines(TABLE)) {
            if (line.isBlank() || line.startsWith("#")) {
                continue;
            }
            String name = line.substring(0, line.indexOf(':'));
            boolean mayRefuse = line.endsWith(" | may refuse");
            String rest = line.substring(line.indexOf(':') + 1).replace(" | may refuse", "").trim();
            List<String> roles = rest.isEmpty() ? List.of() : List.of(rest.split(" +"));
            int parameters = roles.size() + (int) roles.stream().filter(AllNativesTest::takesArrayAndLength).count();
            Class<?> type = Class.forName("com.vesma.quorl." + name.substring(0, name.indexOf('.')));
            List<Method> matching = declaredNatives(type).stream()
                    .filter(m -> m.getName().equals(name.substring(name.indexOf('.') + 1)))
                    .filter(m -> m.getParameterCount() == parameters).toList();
            assertEquals(1, matching.size(), line);
            rows.add(new Row(matching.get(0), roles, mayRefuse));
        }
        return rows;
    }

    private static String mangled(String text) {
        return text.replace("_", "_1").replace(";", "_2").replace("[", "_3").replace('.', '_').replace('/', '_');
    }

    /** The symbol by which the machine finds a native; overloaded ones have their parameters in it. */
    private static String symbolOf(Method method) {
        Class<?> type = method.getDeclaringClass();
        String symbol = "Java_" + mangled(type.getName()) + "_" + mangled(method.getName());
        if (declaredNatives(type).stream().filter(m -> m.getName().equals(method.getName())).count() == 1) {
            return symbol;
        }
        return symbol + "__" + Arrays.stream(method.getParameterTypes())
                .map(parameter -> mangled(parameter.descriptorString())).collect(Collectors.joining());
    }

    @Test
    void theTableNamesEveryExportedNative() throws Exception {
        Path library = Path.of(System.getProperty("com.vesma.quorl.library"), "libquorlnativesd.so");
        Process nm = new ProcessBuilder("nm", "-D", "--defined-only", "--format=posix", library.toString())
                .redirectError(ProcessBuilder.Redirect.INHERIT).start();
        Set<String> exported = new TreeSet<>();
        new String(nm.getInputStream().readAllBytes(), StandardCharsets.US_ASCII).lines()
                .map(line -> line.substring(0, line.indexOf(' '))).filter(name -> name.startsWith("Java_"))
                .forEach(exported::add);
        assertEquals(0, nm.waitFor());
        List<String> called = table().stream().map(row -> symbolOf(row.method)).toList();
        assertEquals(exported, new TreeSet<>(called));
        assertEquals(301, called.size());
    }

    // ---- values ---------------------------------------------------------------------------------------------------

    private static final Map<String, Integer> positions = new HashMap<>();

    /** A message with one field of each kind, and both subjects. */
    private static long newMessage() {
        long m = QuorlMsg.quorlMsg_Create();
        long inner = QuorlMsg.quorlMsg_Create();
        short id = 0;
        QuorlMsg.quorlMsg_SetSendStringSubject(m, "a.b", null);
        QuorlMsg.quorlMsg_SetReplyStringSubject(m, "c.d", null);
        Map<String, Runnable> fields = new LinkedHashMap<>();
        fields.put("bool", () -> QuorlMsg.quorlMsg_AddBoolUTF(m, "bool", true, id, null));
        fields.put("i8", () -> QuorlMsg.quorlMsg_AddI8UTF(m, "i8", (byte) 1, id, null));
        fields.put("u8", () -> QuorlMsg.quorlMsg_AddU8UTF(m, "u8", (byte) 1, id, null));
        fields.put("i16", () -> QuorlMsg.quorlMsg_AddI16UTF(m, "i16", (short) 1, id, null));
        fields.put("u16", () -> QuorlMsg.quorlMsg_AddU16UTF(m, "u16", (short) 1, id, null));
        fields.put("i32", () -> QuorlMsg.quorlMsg_AddI32UTF(m, "i32", 1, id, null));
        fields.put("u32", () -> QuorlMsg.quorlMsg_AddU32UTF(m, "u32", 1, id, null));
        fields.put("i64", () -> QuorlMsg.quorlMsg_AddI64UTF(m, "i64", 1, id, null));
        fields.put("u64", () -> QuorlMsg.quorlMsg_AddU64UTF(m, "u64", 1, id, null));
        fields.put("f32", () -> QuorlMsg.quorlMsg_AddF32UTF(m, "f32", 1, id, null));
        fields.put("f64", () -> QuorlMsg.quorlMsg_AddF64UTF(m, "f64", 1, id, null));
        fields.put("IPPort16", () -> QuorlMsg.quorlMsg_AddIPPort16UTF(m, "IPPort16", (short) 1, id, null));
        fields.put("IPAddr32", () -> QuorlMsg.quorlMsg_AddIPAddr32UTF(m, "IPAddr32", 1, id, null));
        fields.put("date", () -> QuorlMsg.quorlMsg_AddDateTimeUTF(m, "date", 1, 1, id, null));
        fields.put("string", () -> QuorlMsg.quorlMsg_AddStringUTF(m, "string", "abc", id, null));
        fields.put("msg", () -> QuorlMsg.quorlMsg_AddMsgUTF(m, "msg", inner, id, null, null));
        fields.put("i8Array", () -> QuorlMsg.quorlMsg_AddI8ArrayUTF(m, "i8Array", new byte[4], 4, id, null));
        fields.put("u8Array", () -> QuorlMsg.quorlMsg_AddU8ArrayUTF(m, "u8Array", new short[4], 4, id, null));
        fields.put("i16Array", () -> QuorlMsg.quorlMsg_AddI16ArrayUTF(m, "i16Array", new short[4], 4, id, null));
        fields.put("u16Array", () -> QuorlMsg.quorlMsg_AddU16ArrayUTF(m, "u16Array", new int[4], 4, id, null));
        fields.put("i32Array", () -> QuorlMsg.quorlMsg_AddI32ArrayUTF(m, "i32Array", new int[4], 4, id, null));
        fields.put("u32Array", () -> QuorlMsg.quorlMsg_AddU32ArrayUTF(m, "u32Array", new long[4], 4, id, null));
        fields.put("i64Array", () -> QuorlMsg.quorlMsg_AddI64ArrayUTF(m, "i64Array", new long[4], 4, id, null));
        fields.put("u64Array", () -> QuorlMsg.quorlMsg_AddU64ArrayUTF(m, "u64Array", new long[4], 4, id, null));
        fields.put("f32Array", () -> QuorlMsg.quorlMsg_AddF32ArrayUTF(m, "f32Array", new float[4], 4, id, null));
        fields.put("f64Array", () -> QuorlMsg.quorlMsg_AddF64ArrayUTF(m, "f64Array", new double[4], 4, id, null));
        fields.put("stringArray",
                () -> QuorlMsg.quorlMsg_AddStringArrayUTF(m, "stringArray", new Object[] {TEXT, TEXT}, 2, id, null));
        fields.put("msgArray",
                () -> QuorlMsg.quorlMsg_AddMsgArrayUTF(m, "msgArray", new long[] {inner, inner, inner, inner}, 4, id, null));
        fields.put("opaque", () -> QuorlMsg.quorlMsg_AddOpaqueUTF(m, "opaque", TEXT, 4, id, null));
        fields.put("xml", () -> QuorlMsg.quorlMsg_AddXmlUTF(m, "xml", TEXT, 4, id, null));
        fields.put("user", () -> QuorlMsg.quorlMsg_AddUserTypeUTF(m, (short) 200, "user", TEXT, 4, id, null));
        for (Map.Entry<String, Runnable> field : fields.entrySet()) {
            positions.put(field.getKey(), QuorlMsg.quorlMsg_GetNumFields(m, null));
            field.getValue().run();
        }
        QuorlMsg.quorlMsg_Destroy(inner, null);
        return m;
    }

    private static byte[] ascii(String text) {
        return text.getBytes(StandardCharsets.US_ASCII);
    }

    private static long destroyedMessage() {
        long m = QuorlMsg.quorlMsg_Create();
        QuorlMsg.quorlMsg_Destroy(m, null);
        return m;
    }

    private static int destroyedQueue() {
        int id = QuorlQueue.quorlQueue_Create();
        QuorlQueue.quorlQueue_Destroy(id);
        return id;
    }

    /** What one place of a call takes: a value, or an array with its length. Each is made anew for each call. */
    private static final class Choice {
        final List<Supplier<Object[]>> right = new ArrayList<>();
        final List<Supplier<Object[]>> wrong = new ArrayList<>();

        Choice right(Supplier<Object> value) {
            right.add(() -> new Object[] {value.get()});
            return this;
        }

        Choice wrong(Object... values) {
            for (Object value : values) {
                wrong.add(() -> new Object[] {value});
            }
            return this;
        }

        Choice wrongLength(Object array, int... lengths) {
            for (int length : lengths) {
                wrong.add(() -> new Object[] {array, length});
            }
            return this;
        }

        Choice rightLength(Supplier<Object> array, int length) {
            right.add(() -> new Object[] {array.get(), length});
            return this;
        }
    }

    private Choice id(Supplier<Object> live) {
        return new Choice().right(live)
                .wrong(0, -1, Integer.MIN_VALUE, Integer.MAX_VALUE, 4711, destroyedQueue(), queue.id() ^ 1 << 20);
    }

    private static final int[] NEGATIVE = {-1, -2, -256, Integer.MIN_VALUE};

    private static Choice text(String value, boolean takesNull) {
        byte[] bytes = ascii(value);
        Choice choice = new Choice().rightLength(() -> bytes, bytes.length);
        choice.wrongLength(bytes, NEGATIVE).wrongLength(bytes, 0, bytes.length + 1, 254, 255, 1_000_000, Integer.MAX_VALUE);
        for (int length : new int[] {126, 127, 128, 254, 255, 256, 100_000}) {
            byte[] overlong = new byte[length];
            Arrays.fill(overlong, (byte) 'n');
            choice.wrongLength(overlong, length);
        }
        choice.wrongLength(new byte[4], 4);
        if (takesNull) {
            choice.wrongLength(null, 0, 4, -1);
        }
        return choice;
    }

    private static Object number(Class<?> type, int value) {
        if (type == boolean.class) return value != 0;
        if (type == byte.class) return (byte) value;
        if (type == short.class) return (short) value;
        if (type == int.class) return value;
        if (type == long.class) return (long) value;
        if (type == float.class) return value / 2f;
        assertEquals(double.class, type);
        return value / 2.0;
    }

    private static Choice numbers(Class<?> type, int right) {
        Choice choice = new Choice().right(() -> number(type, right)).wrong(number(type, 0), number(type, -1));
        if (type == byte.class) choice.wrong(Byte.MIN_VALUE, Byte.MAX_VALUE);
        if (type == short.class) choice.wrong(Short.MIN_VALUE, Short.MAX_VALUE);
        if (type == int.class) choice.wrong(Integer.MIN_VALUE, Integer.MAX_VALUE, 0x10000);
        if (type == long.class) choice.wrong(Long.MIN_VALUE, Long.MAX_VALUE, 1L << 32);
        if (type == float.class) choice.wrong(Float.NaN, Float.NEGATIVE_INFINITY);
        if (type == double.class) choice.wrong(Double.NaN, Double.POSITIVE_INFINITY, Double.NEGATIVE_INFINITY, 1e300);
        return choice;
    }

    /** What the role stands for at a parameter of that type. Null arrays are given where the native takes one. */
    private Choice choice(String role, Class<?> type) {
        String value = valueOf(role, "");
        switch (nameOf(role)) {
            case "queue":
                return id(QuorlQueue::quorlQueue_Create).wrong(transport.id());
            case "group":
                return id(QuorlQueueGroup::quorlQueueGroup_Create).wrong(queue.id());
            case "transport":
                return id(() -> QuorlQrdTransport.quorlTransport_Create(null, 0, null, 0, null, 0)).wrong(queue.id());
            case "event":
                return id(() -> listener.quorlEvent_CreateListener(queue.id(), transport.id(), ascii("e"), 1)).wrong(queue.id());
            case "timer":
                return id(() -> timer.quorlEvent_CreateTimer(queue.id(), 3600)).wrong(queue.id());
            case "dispatcher":
            case "other":
                return id(() -> 7).wrong(queue.id(), transport.id());
            case "text":
                return text(value, true);
            case "text!":
                return text(value, false);
            case "string":
                return new Choice().right(() -> value)
                        .wrong("", "\u00e9\ud83d\ude00\0", "n".repeat(127), "n".repeat(255), "n".repeat(100_000));
            case "message":
                return new Choice().right(() -> QuorlMsg.quorlMsg_CreateCopy(model, null))
                        .wrong(0L, -1L, Long.MIN_VALUE, destroyedMessage(), model ^ 1L << 40);
            case "live":
                // A handle that the library refuses is not for this native: its exception is made with another's constructor.
                return new Choice().right(() -> QuorlMsg.quorlMsg_CreateCopy(model, null));
            case "at":
                int position = positions.get(value);
                return new Choice().right(() -> position).wrong(position + 0x10000, -1, 1000, 0xFFFF, Integer.MIN_VALUE | 0x7FFF);
            case "number":
                return numbers(type, value.isEmpty() ? type == short.class ? 0 : 1 : Integer.parseInt(value));
            case "poll":
                return new Choice().right(() -> 0.0).wrong(Double.NaN, 0.001);
            case "unread":
                return new Choice().right(() -> null)
                        .wrong(type == Object[].class ? new Object[1] : type == Object.class ? "" : new QuorlMsg());
            case "review":
                return new Choice().right(() -> new QuorlCmReviewLedgerInfo() {
                    @Override
                    protected boolean onSubject(QuorlCmSubject subject) {
                        return true;
                    }
                });
            case "cell":
                return new Choice().right(QuorlDispatcher::quorlDispatchable_SetThreadKey).wrong(0L);
            case "into":
                int room = Integer.parseInt(value);
                Function<Integer, Object> make = length -> Array.newInstance(type.getComponentType(), length);
                return new Choice().right(() -> make.apply(room))
                        .wrong(make.apply(0), make.apply(room - 1), make.apply(room + 1));
            case "elements":
                Object array = Array.newInstance(type.getComponentType(), 4);
                return new Choice().rightLength(() -> array, 4).wrongLength(array, NEGATIVE).wrongLength(array, 0, 3);
            case "messages":
                Supplier<Object> handles = () -> new long[] {QuorlMsg.quorlMsg_CreateCopy(model, null), model};
                return new Choice().rightLength(handles, 2).wrongLength(handles.get(), NEGATIVE).wrongLength(handles.get(), 0)
                        .wrongLength(new long[] {0, -1, destroyedMessage()}, 3);
            case "strings":
                Object[] strings = {TEXT, new byte[0], new byte[] {0, 1}};
                return new Choice().rightLength(() -> strings, 3).wrongLength(strings, NEGATIVE).wrongLength(strings, 0, 1, 4)
                        .wrongLength(new Object[] {TEXT, null}, 2).wrongLength(new Object[] {TEXT}, 1_000_000)
                        .wrongLength(null, 0);
            case "parameters":
                String[] parameters = {"service=9", "queue.limit=5"};
                return new Choice().rightLength(() -> parameters, 2).wrongLength(parameters, NEGATIVE)
                        .wrongLength(parameters, 0, 1, 3).wrongLength(new String[] {"", "\ud83d\ude00"}, 2)
                        .wrongLength(null, 0, -1);
            case "image":
                byte[] image = QuorlMsg.quorlMsg_GetAsBytes(model, null);
                byte[] torn = image.clone();
                Arrays.fill(torn, torn.length / 2, torn.length, (byte) 0xEE);
                byte[] foreign = image.clone();
                foreign[0] ^= 0x55;
                return new Choice().rightLength(() -> image, image.length).wrongLength(image, NEGATIVE).wrongLength(image, 0, 1)
                        .wrongLength(torn, torn.length).wrongLength(foreign, foreign.length);
            default:
                return fail("no such role: " + role);
        }
    }

    // ---- calls ----------------------------------------------------------------------------------------------------

    private QuorlListener listener;
    private QuorlTimer timer;
    private QuorlVectorListener vectorListener;
    private long model;

    private Object receiverFor(Class<?> type) {
        if (type == QuorlListener.class) return listener;
        if (type == QuorlTimer.class) return timer;
        if (type == QuorlVectorListener.class) return vectorListener;
        if (type == QuorlMsg.class) return new QuorlMsg();
        boolean made = type == QuorlCmListener.class || type == QuorlFtMember.class || type == QuorlFtMonitor.class;
        return made ? withoutConstructor(type) : fail("no receiver for " + type);
    }

    /** An object of a class whose constructors all call the library. */
    private static Object withoutConstructor(Class<?> type) {
        try {
            Class<?> maker = Class.forName("sun.reflect.ReflectionFactory");
            return ((java.lang.reflect.Constructor<?>) maker.getMethod("newConstructorForSerialization", Class.class, java.lang.reflect.Constructor.class)
                    .invoke(maker.getMethod("getReflectionFactory").invoke(null), type, Object.class.getDeclaredConstructor())).newInstance();
        } catch (ReflectiveOperationException e) {
            throw new AssertionError(e);
        }
    }

    /** The answer's exception, null when there is none. Opening and closing the library is balanced here. */
    private Throwable call(Row row, Object[] arguments) throws Exception {
        String name = row.method.getName();
        if (name.equals("quorl_Close")) {
            assertEquals(0, Quorl.quorl_Open());
        }
        Object receiver =
                Modifier.isStatic(row.method.getModifiers()) ? null : receiverFor(row.method.getDeclaringClass());
        try {
            Object result = row.method.invoke(receiver, arguments);
            if (List.of("quorl_Open", "quorl_OpenEx").contains(name) && result.equals(0)) {
                assertEquals(0, Quorl.quorl_Close());
            }
            return null;
        } catch (InvocationTargetException e) {
            if (name.equals("quorl_OpenEx") && Quorl.quorl_OpenEx(new byte[0], 0) == 0) {
                // The path that could not be copied was an empty one for the library, and opened it too.
                assertEquals(0, Quorl.quorl_Close());
                assertEquals(0, Quorl.quorl_Close());
            }
            return e.getCause();
        }
    }

    /** Whether the machine refuses to copy that text, if the native comes to it. */
    private static boolean copyFails(String role, Object[] value) {
        if (!nameOf(role).startsWith("text") || value[0] == null) {
            return false;
        }
        int length = (int) value[1];
        return length < 0 || length > ((byte[]) value[0]).length;
    }

    /**
     * Whether the native calls the machine between the copy of that text and its call of the library: it does not look for
     * the exception of a copy that failed. The checking machine warns of such calls, all others carry them out.
     */
    private static boolean goesOnInTheMachine(Row row, int place) {
        return !Modifier.isStatic(row.method.getModifiers()) || row.roles.stream().skip(place + 1)
                .anyMatch(role -> takesArrayAndLength(role) || role.equals("review"));
    }

    private static Object[] joined(List<Object[]> parts) {
        return parts.stream().flatMap(Arrays::stream).toArray();
    }

    private void callWithAll(Row row) throws Exception {
        List<Choice> choices = new ArrayList<>();
        int parameter = 0;
        for (String role : row.roles) {
            choices.add(choice(role, row.method.getParameterTypes()[parameter]));
            parameter += takesArrayAndLength(role) ? 2 : 1;
        }
        Throwable thrown = call(row, joined(choices.stream().map(c -> c.right.get(0).get()).toList()));
        assertTrue(thrown == null || row.mayRefuse && thrown instanceof QuorlException, () -> "with right arguments: " + thrown);
        for (int wrong = 0; wrong < choices.size(); wrong++) {
            for (Supplier<Object[]> value : choices.get(wrong).wrong) {
                boolean copyFails = copyFails(row.roles.get(wrong), value.get());
                if (copyFails && CHECKED && goesOnInTheMachine(row, wrong)) {
                    continue;
                }
                List<Object[]> parts = new ArrayList<>();
                for (Choice each : choices) {
                    parts.add(each == choices.get(wrong) ? value.get() : each.right.get(0).get());
                }
                Object[] arguments = joined(parts);
                Throwable answer = call(row, arguments);
                boolean expected = answer == null || answer instanceof IndexOutOfBoundsException
                        || answer instanceof QuorlException e && e.getStatus() >= 0
                        || answer instanceof OutOfMemoryError o && o.getMessage().startsWith("Cannot allocate memory for");
                assertTrue(expected, () -> Arrays.deepToString(arguments) + ": " + answer);
                if (copyFails && (int) value.get()[1] > 0 && (int) value.get()[1] <= 1_000_000) {
                    assertTrue(answer instanceof IndexOutOfBoundsException, () -> "a copy that fails: " + answer);
                }
            }
        }
    }

    @TestFactory
    List<DynamicTest> everyNative() throws Exception {
        List<DynamicTest> tests = new ArrayList<>();
        for (Row row : table()) {
            String name = row.method.getDeclaringClass().getSimpleName() + "." + row.method.getName() + " " + row.roles;
            tests.add(DynamicTest.dynamicTest(name, () -> {
                model = newMessage();
                try (QuorlListener l = new QuorlListener(queue, transport, "l", (self, m) -> {});
                        QuorlTimer t = new QuorlTimer(queue, NativesTest.NEVER, self -> {});
                        QuorlVectorListener v = new QuorlVectorListener(queue, transport, "v", (self, m) -> {})) {
                    listener = l;
                    timer = t;
                    vectorListener = v;
                    callWithAll(row);
                } finally {
                    QuorlMsg.quorlMsg_Destroy(model, null);
                }
            }));
        }
        return tests;
    }
}
