package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.lang.reflect.Constructor;
import java.lang.reflect.Executable;
import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.net.InetAddress;
import java.nio.file.Path;
import java.time.Duration;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Iterator;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.TreeMap;
import java.util.TreeSet;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.Executor;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Test;

/**
 * The use of what is closed is refused with one exception, by every method of every public class: of the object itself, and
 * of what is given a closed one. The classes and methods are found, not listed, so that a new one is looked at too.
 */
class ClosedTest extends OpenLibrary {
    /** What an object still tells or does, since it needs nothing of the library for that. */
    private static final Map<Class<?>, Set<String>> HARMLESS = Map.ofEntries(
            Map.entry(AutoCloseable.class, Set.of("close", "isClosed", "toString")),
            Map.entry(QuorlEvent.class, Set.of("getQueue")),
            Map.entry(QuorlListener.class, Set.of("getTransport", "getSubject", "getShare", "stream", "publisher")),
            Map.entry(QuorlVectorListener.class, Set.of("getTransport", "getSubject")),
            Map.entry(QuorlVcTransport.class, Set.of("getConnectSubject", "getParent")),
            Map.entry(QuorlCmTransport.class, Set.of("getTransport", "getName")),
            Map.entry(QuorlCmListener.class, Set.of("getTransport", "getSubject", "getConfirmation")),
            Map.entry(QuorlCmTransport.Builder.class, Set.of("name", "ledger", "durability", "requestOld", "relayAgent")),
            Map.entry(QuorlFtMember.class, Set.of("isActive", "getToken", "getWeight", "getGroup", "getTransport")),
            Map.entry(QuorlFtMember.Builder.class, Set.of("weight", "activeGoal", "intervals", "onPrepareToActivate", "onActivate",
                    "onDeactivate")),
            Map.entry(QuorlFtMonitor.class, Set.of("getActiveMembers", "getGroup", "getTransport")),
            Map.entry(QuorlDispatcher.class, Set.of("getName", "getThread", "getThreads")),
            Map.entry(QuorlDispatcher.Builder.class, Set.of("name", "threads", "executor", "unordered", "inFlight", "uncaughtExceptionHandler")),
            Map.entry(QuorlMsgView.class, Set.of("isClosed", "toString")),
            Map.entry(QuorlMsgField.class, Set.of("getName", "getId", "getType", "getIndex", "getCount", "getSize", "toString")));

    record Empty() {}

    /** One of each kind, in its present state. */
    private final Map<Class<?>, Object> open = new TreeMap<>((a, b) -> a.getName().compareTo(b.getName()));

    /** Also when a test has failed, or the library would stay open for those that come behind. */
    @AfterEach
    void closeWhatIsOpen() throws Exception {
        closeAll(open);
    }

    private void make(Map<Class<?>, Object> into) {
        QuorlQrdTransport transport = new QuorlQrdTransport();
        QuorlQueue queue = new QuorlQueue();
        QuorlQueueGroup group = new QuorlQueueGroup();
        QuorlMsg message = new QuorlMsg("a").addI32("n", 1).addMsg("inner", new QuorlMsg());
        into.put(Quorl.class, Quorl.open());
        into.put(QuorlQrdTransport.class, transport);
        into.put(QuorlTransport.class, transport);
        into.put(QuorlQueue.class, queue);
        into.put(QuorlQueueGroup.class, group);
        into.put(QuorlMsg.class, message);
        into.put(QuorlMsgView.class, message.view());
        into.put(QuorlMsgField.class, message.getField("n"));
        into.put(QuorlVcTransport.class, QuorlVcTransport.accept(transport));
        into.put(QuorlListener.class, new QuorlListener(queue, transport, "a"));
        into.put(QuorlVectorListener.class, new QuorlVectorListener(queue, transport, "a", (l, m) -> {}));
        into.put(QuorlTimer.class, new QuorlTimer(queue, Duration.ofDays(1), t -> {}));
        into.put(QuorlEvent.class, into.get(QuorlTimer.class));
        into.put(QuorlDispatcher.class, new QuorlDispatcher(group));
        into.put(QuorlDispatcher.Builder.class, QuorlDispatcher.builder(group));
        into.put(QuorlSdContext.class, new QuorlSdContext());
        into.put(QuorlCmTransport.Builder.class, QuorlCmTransport.builder(transport));
        QuorlCmTransport certified = QuorlCmTransport.builder(transport).open();
        into.put(QuorlCmTransport.class, certified);
        into.put(QuorlFtMember.Builder.class, QuorlFtMember.builder(queue, transport, "a"));
        into.put(QuorlFtMember.class, QuorlFtMember.builder(queue, transport, "a").join());
        into.put(QuorlFtMonitor.class, new QuorlFtMonitor(queue, transport, "a", Duration.ofDays(1), (m, count) -> {}));
        into.put(QuorlCmListener.class, new QuorlCmListener(queue, certified, "a", (l, m) -> {}));
    }

    private static void closeAll(Map<Class<?>, Object> all) throws Exception {
        for (Object each : all.values()) {
            if (each instanceof AutoCloseable) {
                ((AutoCloseable) each).close();
            }
        }
    }

    private static Object valueOf(Class<?> type, Map<Class<?>, Object> objects) throws Exception {
        if (objects.containsKey(type)) {
            return objects.get(type);
        }
        if (type.isArray()) {
            Object array = java.lang.reflect.Array.newInstance(type.getComponentType(), 1);
            java.lang.reflect.Array.set(array, 0, valueOf(type.getComponentType(), objects));
            return array;
        }
        Map<Class<?>, Object> plain = new java.util.HashMap<>();
        plain.put(boolean.class, true);
        plain.put(byte.class, (byte) 1);
        plain.put(char.class, 'c');
        plain.put(short.class, (short) 1);
        plain.put(int.class, 200);
        plain.put(long.class, 1L);
        plain.put(float.class, 1f);
        plain.put(double.class, 1d);
        plain.put(String.class, "n");
        plain.put(Duration.class, Duration.ZERO);
        plain.put(Instant.class, Instant.EPOCH);
        plain.put(List.class, List.of(objects.get(QuorlMsg.class)));
        plain.put(Class.class, Empty.class);
        plain.put(Record.class, new Empty());
        plain.put(java.net.Inet4Address.class, InetAddress.getByAddress(new byte[] {127, 0, 0, 1}));
        plain.put(Executor.class, (Executor) Runnable::run);
        plain.put(QuorlListener.Handler.class, (QuorlListener.Handler) (l, m) -> {});
        plain.put(QuorlVectorListener.Handler.class, (QuorlVectorListener.Handler) (l, m) -> {});
        plain.put(QuorlTimer.Handler.class, (QuorlTimer.Handler) t -> {});
        plain.put(QuorlCmListener.Handler.class, (QuorlCmListener.Handler) (l, m) -> {});
        plain.put(QuorlFtMember.Handler.class, (QuorlFtMember.Handler) m -> {});
        plain.put(QuorlFtMonitor.Handler.class, (QuorlFtMonitor.Handler) (m, count) -> {});
        plain.put(QuorlCmListener.Confirmation.class, QuorlCmListener.Confirmation.AUTOMATIC);
        plain.put(QuorlDurability.class, QuorlDurability.PROCESS);
        plain.put(Path.class, Path.of("none.ledger"));
        plain.put(QuorlCmReviewLedgerInfo.class, new QuorlCmReviewLedgerInfo() {
            @Override
            protected boolean onSubject(QuorlCmSubject subject) {
                return true;
            }
        });
        plain.put(Thread.UncaughtExceptionHandler.class, (Thread.UncaughtExceptionHandler) (t, e) -> {});
        return plain.get(type);
    }

    /** What a call ends with: "closed" when it is refused as it is to be, else what it did. */
    private static String outcome(Executable call, Object on, Object[] arguments) throws Exception {
        try {
            Object result = call instanceof Method ? ((Method) call).invoke(on, arguments)
                    : ((Constructor<?>) call).newInstance(arguments);
            if (result instanceof CompletableFuture) {
                try {
                    ((CompletableFuture<?>) result).get(LIMIT.toSeconds(), java.util.concurrent.TimeUnit.SECONDS);
                } catch (ExecutionException e) {
                    return e.getCause() instanceof QuorlClosedException ? "closed" : e.getCause().toString();
                }
            }
            if (result instanceof Iterator || result instanceof java.util.Spliterator) {
                return "gives an iterator";
            }
            return "works";
        } catch (InvocationTargetException e) {
            return e.getCause() instanceof QuorlClosedException ? "closed" : e.getCause().toString();
        } catch (IllegalArgumentException e) {
            return "no argument for this test: " + Arrays.toString(arguments);
        }
    }

    private static boolean isHarmless(Object on, Method method) {
        return HARMLESS.entrySet().stream()
                .anyMatch(each -> each.getKey().isInstance(on) && each.getValue().contains(method.getName()));
    }

    private static Object[] arguments(Executable call, Map<Class<?>, Object> objects) throws Exception {
        Object[] arguments = new Object[call.getParameterCount()];
        for (int i = 0; i < arguments.length; i++) {
            arguments[i] = valueOf(call.getParameterTypes()[i], objects);
            if (i > 0 && arguments[i] instanceof QuorlMsg && arguments[i] == arguments[0]) {
                arguments[i] = ((QuorlMsg) arguments[i]).copy();
            }
        }
        return arguments;
    }

    /** Calls each method of each object. */
    private static Set<String> surprises(Map<Class<?>, Object> closed, Map<Class<?>, Object> open) throws Exception {
        Set<String> surprises = new TreeSet<>();
        for (Object each : Set.copyOf(closed.values())) {
            for (Method method : each.getClass().getMethods()) {
                if (method.getDeclaringClass() == Object.class || Modifier.isStatic(method.getModifiers()) || isHarmless(each, method)) {
                    continue;
                }
                if (Set.of("forEach", "equals", "hashCode").contains(method.getName())) {
                    continue;
                }
                String outcome = outcome(method, each, arguments(method, open));
                if (!outcome.equals("closed")) {
                    surprises.add(method + " " + outcome);
                }
            }
        }
        return surprises;
    }

    @Test
    void everyKindIsLookedAt() throws Exception {
        make(open);
        for (Class<?> kind : ApiClasses.all()) {
            if (AutoCloseable.class.isAssignableFrom(kind)) {
                assertTrue(open.containsKey(kind), kind + " is closed by no test here");
            }
        }
    }

    @Test
    void whatIsClosedRefusesEveryUse() throws Exception {
        Map<Class<?>, Object> closed = new TreeMap<>(((TreeMap<Class<?>, Object>) open).comparator());
        make(closed);
        make(open);
        closeAll(closed);
        assertEquals("", String.join("\n", surprises(closed, open)));
    }

    /** Gives each method and constructor something closed, one argument at a time. */
    private static Set<String> givenSurprises(Map<Class<?>, Object> closed, Map<Class<?>, Object> open) throws Exception {
        Set<String> surprises = new TreeSet<>();
        for (Class<?> kind : ApiClasses.all()) {
            List<Executable> calls = new ArrayList<>(List.of(kind.getConstructors()));
            calls.addAll(List.of(kind.getDeclaredMethods()));
            for (Executable call : calls) {
                if (!Modifier.isPublic(call.getModifiers()) || Modifier.isAbstract(call.getModifiers()) || call.isSynthetic()) {
                    continue;
                }
                for (int i = 0; i < call.getParameterCount(); i++) {
                    Class<?> type = call.getParameterTypes()[i];
                    boolean holds = closed.containsKey(type) || (type == List.class && !kind.isRecord());
                    // A builder is told of what is closed when it starts.
                    if (!holds || call.getName().equals("builder")) {
                        continue;
                    }
                    Object[] arguments = arguments(call, open);
                    arguments[i] = valueOf(type, closed);
                    String outcome = outcome(call, open.get(kind), arguments);
                    if (!outcome.equals("closed")) {
                        surprises.add(call + " argument " + i + " " + outcome);
                    }
                }
            }
        }
        return surprises;
    }

    @Test
    void whatIsGivenSomethingClosedSaysSo() throws Exception {
        Map<Class<?>, Object> closed = new TreeMap<>(((TreeMap<Class<?>, Object>) open).comparator());
        make(closed);
        make(open);
        closeAll(closed);
        assertEquals("", String.join("\n", givenSurprises(closed, open)));
    }

    /** Messages need no open library, and credentials neither. */
    @Test
    void theLastCloseOfTheLibraryClosesTheOthers() throws Exception {
        make(open);
        quorl.close();
        ((Quorl) open.get(Quorl.class)).close();
        Map<Class<?>, Object> closed = new TreeMap<>(((TreeMap<Class<?>, Object>) open).comparator());
        closed.putAll(open);
        closed.keySet().removeIf(kind -> kind.getSimpleName().startsWith("QuorlMsg") || kind == QuorlSdContext.class);
        assertEquals("", String.join("\n", surprises(closed, open)));
        // Nor does what is opened anew know them.
        try (Quorl again = Quorl.open()) {
            assertEquals("", String.join("\n", surprises(closed, open)));
        }
    }
}
