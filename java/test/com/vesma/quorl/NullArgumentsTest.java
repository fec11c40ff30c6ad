package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.lang.reflect.Array;
import java.lang.reflect.Constructor;
import java.lang.reflect.Executable;
import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.lang.reflect.Proxy;
import java.net.Inet4Address;
import java.net.InetAddress;
import java.nio.file.Path;
import java.time.Duration;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Comparator;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.concurrent.Executor;
import java.util.function.Function;
import org.junit.jupiter.api.Test;

/** Every public method that refuses a null says which argument it was, in words of its own. */
class NullArgumentsTest extends OpenLibrary {
    private static final String PACKAGE = "com.vesma.quorl.";

    private final List<String> bad = new ArrayList<>();
    private int refused;

    @Test
    void aNullThatIsRefusedIsNamed() throws Exception {
        List<Class<?>> classes = ApiClasses.all();
        assertTrue(classes.size() > 20, classes.toString());
        for (Class<?> type : classes) {
            for (Constructor<?> constructor : type.getConstructors()) {
                tryNulls(constructor, given -> constructor.newInstance(given));
            }
            Method[] methods = type.getMethods();
            Arrays.sort(methods, Comparator.comparing(Method::toString));
            for (Method method : methods) {
                if (!method.getDeclaringClass().getName().startsWith(PACKAGE) || method.isBridge()) {
                    continue;
                }
                if (Modifier.isStatic(method.getModifiers())) {
                    tryNulls(method, given -> method.invoke(null, given));
                } else if (isMade(type)) {
                    tryNulls(method, given -> {
                        Object target = value(type);
                        try {
                            return method.invoke(target, given);
                        } finally {
                            if (target instanceof AutoCloseable closeable && target != quorl) {
                                closeable.close();
                            }
                        }
                    });
                }
            }
        }
        assertEquals("", String.join("\n", bad));
        assertTrue(refused > 100, "only " + refused + " refusals");
    }

    /** Whether there is an object of this very class to call; what classes without one declare, those below them inherit. */
    private boolean isMade(Class<?> type) throws Exception {
        Object one = value(type);
        if (one instanceof AutoCloseable closeable && one != quorl) {
            closeable.close();
        }
        return one != null && one.getClass() == type;
    }

    private interface Call {
        Object with(Object[] given) throws Exception;
    }

    private void tryNulls(Executable what, Call call) throws Exception {
        Class<?>[] types = what.getParameterTypes();
        for (int i = 0; i < types.length; i++) {
            if (types[i].isPrimitive() || what.getName().equals("equals")) {
                continue;
            }
            Object[] given = new Object[types.length];
            for (int k = 0; k < given.length; k++) {
                given[k] = k == i ? null : value(types[k]);
            }
            try {
                Object made = call.with(given);
                if (made instanceof AutoCloseable closeable && made != quorl) {
                    closeable.close();
                }
            } catch (InvocationTargetException e) {
                if (e.getCause() instanceof NullPointerException refusal) {
                    refused++;
                    String text = refusal.getMessage();
                    // What the machine says of a null that it trips over begins so.
                    if (text == null || text.startsWith("Cannot ")) {
                        bad.add(what + ", argument " + (i + 1) + ": " + text);
                    }
                }
            } finally {
                for (Object each : given) {
                    if (each instanceof AutoCloseable closeable && each != quorl) {
                        closeable.close();
                    }
                }
            }
        }
    }

    /** Something that a parameter of this type takes. */
    private Object value(Class<?> type) throws Exception {
        Map<Class<?>, Function<Class<?>, Object>> made = Map.of(
                QuorlQueue.class, any -> new QuorlQueue(),
                QuorlQueueGroup.class, any -> new QuorlQueueGroup(),
                QuorlMsg.class, any -> new QuorlMsg("a").addI32("a", 1),
                QuorlListener.class, any -> new QuorlListener(queue, transport, "a", (l, m) -> {}),
                QuorlVectorListener.class, any -> new QuorlVectorListener(queue, transport, "a", (l, m) -> {}),
                QuorlTimer.class, any -> new QuorlTimer(queue, Duration.ofDays(1), t -> {}),
                QuorlDispatcher.class, any -> new QuorlDispatcher(queue),
                QuorlDispatcher.Builder.class, any -> QuorlDispatcher.builder(queue),
                QuorlSdContext.class, any -> new QuorlSdContext());
        if (made.containsKey(type)) {
            return made.get(type).apply(type);
        }
        if (type == int.class || type == short.class || type == byte.class || type == long.class || type == float.class
                || type == double.class || type == char.class || type == boolean.class) {
            return Array.get(Array.newInstance(type, 1), 0);
        }
        if (type.isArray()) {
            return Array.newInstance(type.getComponentType(), 0);
        }
        if (type == String.class || type == CharSequence.class || type == Object.class) {
            return "a";
        }
        if (type == Duration.class) {
            return Duration.ZERO;
        }
        if (type == Instant.class) {
            return Instant.EPOCH;
        }
        if (type == Inet4Address.class) {
            return InetAddress.getByAddress(new byte[4]);
        }
        if (type == Class.class) {
            return String.class;
        }
        if (type == Path.class) {
            return Path.of("none");
        }
        if (type == List.class || type == Iterable.class) {
            return List.of();
        }
        if (type == Set.class) {
            return Set.of();
        }
        if (type == Map.class) {
            return Map.of();
        }
        if (type == Quorl.class) {
            return quorl;
        }
        if (type == QuorlMsgView.class) {
            try (QuorlMsg message = new QuorlMsg().addI32("a", 1)) {
                return message.view().copy();
            }
        }
        if (type == QuorlMsgField.class) {
            try (QuorlMsg message = new QuorlMsg().addI32("a", 1)) {
                return message.getFieldAt(0);
            }
        }
        if (type == QuorlVcTransport.class) {
            return QuorlVcTransport.accept(transport);
        }
        if (type == Dispatchable.class) {
            return new QuorlQueue();
        }
        if (type.isAssignableFrom(QuorlQrdTransport.class)) {
            return new QuorlQrdTransport("");
        }
        if (type.isEnum()) {
            return type.getEnumConstants()[0];
        }
        if (type == QuorlCmTransport.Builder.class) {
            return QuorlCmTransport.builder(transport);
        }
        if (type == QuorlCmTransport.class) {
            return QuorlCmTransport.builder(transport).open();
        }
        if (type == QuorlCmListener.class) {
            return new QuorlCmListener(queue, QuorlCmTransport.builder(transport).open(), "a", (l, m) -> {});
        }
        if (type == QuorlFtMember.Builder.class) {
            return QuorlFtMember.builder(queue, transport, "a");
        }
        if (type == QuorlFtMember.class) {
            return QuorlFtMember.builder(queue, transport, "a").join();
        }
        if (type == QuorlFtMonitor.class) {
            return new QuorlFtMonitor(queue, transport, "a", Duration.ofDays(1), (m, count) -> {});
        }
        if (type == Executor.class) {
            return (Executor) Runnable::run;
        }
        if (type.isInterface()) {
            return Proxy.newProxyInstance(type.getClassLoader(), new Class<?>[] {type}, (proxy, method, given) -> null);
        }
        return null;
    }
}
