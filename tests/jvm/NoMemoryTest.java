package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Comparator;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Test;

/** The natives of messages when the process has no more memory: each fails as it is known to, and goes on working after. */
class NoMemoryTest {
    /** Characters of a text that needs twice as many bytes, more than the child may have. */
    private static final int LONG = 48 << 20;

    /** What the child may take beyond what it has: enough for itself. */
    private static final long SPARE = 40L << 20;

    /** Calls every native that takes a Java string with a text that is too long to convert, and prints what is thrown. */
    static final class Converting {
        public static void main(String[] arguments) throws Exception {
            try (QuorlMsg message = new QuorlMsg("plant").addI32("n", 1)) {
                long handle = message.ownHandle();
                List<Method> natives = new ArrayList<>();
                for (Method method : QuorlMsg.class.getDeclaredMethods()) {
                    if (Modifier.isNative(method.getModifiers()) && Arrays.asList(method.getParameterTypes()).contains(String.class)) {
                        natives.add(method);
                    }
                }
                natives.sort(Comparator.comparing(Method::toString));
                String unconvertible = "é".repeat(LONG);
                limitMemory(SPARE);
                for (Method method : natives) {
                    Class<?>[] types = method.getParameterTypes();
                    for (int text = 0; text < types.length; text++) {
                        if (types[text] == String.class) {
                            Object[] values = values(types, handle);
                            values[text] = unconvertible;
                            System.out.println("thrown " + method.getName() + " " + thrown(method, values));
                        }
                    }
                }
                QuorlMsg.quorlMsg_AddI32UTF(handle, "still", 2, (short) 0, null);
                System.out.println("left " + message.getSendSubject() + " " + message);
            }
        }

        private static Object[] values(Class<?>[] types, long handle) {
            Object[] values = new Object[types.length];
            for (int i = 0; i < types.length; i++) {
                Class<?> type = types[i];
                values[i] = type == long.class ? (Object) (i == 0 ? handle : 0L) : type == int.class ? (Object) 1
                        : type == short.class ? (Object) (short) 200 : type == byte.class ? (Object) (byte) 1
                        : type == boolean.class ? (Object) true : type == float.class ? (Object) 1f
                        : type == double.class ? (Object) 1.0 : type == String.class ? "short"
                        : type == Object[].class ? new Object[] {new byte[1]}
                        : type.isArray() ? java.lang.reflect.Array.newInstance(type.getComponentType(), 1) : null;
            }
            return values;
        }

        private static String thrown(Method method, Object[] values) throws IllegalAccessException {
            try {
                method.invoke(null, values);
                return "nothing";
            } catch (InvocationTargetException e) {
                Throwable cause = e.getCause();
                return cause instanceof QuorlException ? "status " + ((QuorlException) cause).getStatus()
                        : cause.getClass().getSimpleName() + ": " + cause.getMessage();
            }
        }
    }

    /** Makes messages until there is no memory for one more, which is no exception, and then goes on. */
    static final class Making {
        public static void main(String[] arguments) throws Exception {
            QuorlMsg.quorlMsg_Destroy(new QuorlMsg().ownHandle(), null);  // loads the library
            // Once with memory: the machine ends when it finds none for what it makes of code that runs for the first time.
            long[] handles = new long[1 << 22];
            System.out.println(makeAll(new long[1000]));
            limitMemory(SPARE / 2);
            System.out.println(makeAll(handles));
        }

        private static String makeAll(long[] handles) {
            int made = 0;
            while (made < handles.length && (handles[made] = QuorlMsg.quorlMsg_Create()) != 0) {
                made++;
            }
            boolean refused = made < handles.length;
            for (int i = 0; i < made; i++) {
                QuorlMsg.quorlMsg_Destroy(handles[i], null);
            }
            long again = QuorlMsg.quorlMsg_Create();
            QuorlMsg.quorlMsg_AddI32UTF(again, "n", 1, (short) 0, null);
            return "refused " + refused + ", then " + QuorlMsg.quorlMsg_GetNumFields(again, null) + " of " + made;
        }
    }

    private static void limitMemory(long spare) throws IOException, InterruptedException {
        // The machine's thread that waits for processes, and the memory that comes with a thread, are there before it is measured.
        prlimit("--as");
        String status = new String(new java.io.FileInputStream("/proc/self/status").readAllBytes());
        long size = Long.parseLong(status.replaceAll("(?s).*VmSize:\\s*(\\d+) kB.*", "$1")) << 10;
        prlimit("--as=" + (size + spare) + ":" + (size + spare));
    }

    private static void prlimit(String limit) throws IOException, InterruptedException {
        Process prlimit = new ProcessBuilder("prlimit", "--pid", Long.toString(ProcessHandle.current().pid()), limit)
                .redirectOutput(ProcessBuilder.Redirect.DISCARD).redirectError(ProcessBuilder.Redirect.INHERIT).start();
        if (!prlimit.waitFor(OpenLibrary.LIMIT.toSeconds(), TimeUnit.SECONDS) || prlimit.exitValue() != 0) {
            throw new IllegalStateException("prlimit failed");
        }
    }

    private static String expected(String method) {
        String name = method.substring("quorlMsg_".length());
        switch (name) {
            case "AddMsgUTF":
            case "AddDateTimeUTF":
            case "SetSendStringSubject":
            case "SetReplyStringSubject":
                return "status " + QuorlException.NO_MEMORY;
            case "AddBoolUTF":
            case "AddStringUTF":
            case "UpdateStringUTF":
                return "OutOfMemoryError: Cannot allocate memory for message field name.";
            case "AddStringArrayUTF":
            case "UpdateStringArrayUTF":
            case "AddMsgArrayUTF":
            case "UpdateMsgArrayUTF":
                return "OutOfMemoryError: Cannot allocate memory for array processing.";
            default:
                return "OutOfMemoryError: Cannot allocate memory for message bytes.";
        }
    }

    private static ChildProcess run(Class<?> main) throws Exception {
        List<String> options = new ArrayList<>(ChildProcess.withLibrary());
        // Nothing is compiled meanwhile, and the heap does not grow: either ends the machine when it finds no memory.
        options.addAll(List.of("-Xint", "-Xms192m", "-Xmx192m", "-XX:+UseSerialGC"));
        ChildProcess child = ChildProcess.run(main, options);
        assertEquals(0, child.exit, child.output);
        assertTrue(!child.output.contains("in native method"), child.output);
        return child;
    }

    @Test
    void aMessageThatCannotBeMadeIsZeroAndNoException() throws Exception {
        ChildProcess child = run(Making.class);
        assertTrue(child.output.contains("refused true, then 1 of "), child.output);
    }

    @Test
    void everyNativeWithAStringThrowsWhatItIsKnownFor() throws Exception {
        ChildProcess child = run(Converting.class);
        Map<String, String> found = new TreeMap<>();
        for (String line : child.output.split("\n")) {
            if (line.startsWith("thrown ")) {
                String[] words = line.split(" ", 3);
                String before = found.put(words[1], words[2]);
                assertTrue(before == null || before.equals(words[2]), line);
            }
        }
        Map<String, String> expected = new TreeMap<>();
        found.keySet().forEach(method -> expected.put(method, expected(method)));
        assertEquals(expected, found);
        // 2 lookups, 7 reads by name, 32 of one value, 19 of numbers, 4 of texts and messages, 6 of bytes, 2 subjects.
        assertEquals(2 + 7 + 32 + 19 + 4 + 6 + 2, found.size());
        assertTrue(child.output.contains("left plant {n=1, still=2}"), child.output);
    }
}
