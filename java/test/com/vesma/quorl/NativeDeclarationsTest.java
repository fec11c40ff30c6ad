package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;

import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import java.util.stream.Collectors;
import org.junit.jupiter.api.Test;

/** Holds the set of natives, which is closed, in place. */
class NativeDeclarationsTest {
    private static final Map<Class<?>, Integer> NATIVES = Map.ofEntries(
            Map.entry(Quorl.class, 11), Map.entry(QuorlQueue.class, 12), Map.entry(QuorlQueueGroup.class, 5),
            Map.entry(QuorlListener.class, 2), Map.entry(QuorlTimer.class, 3), Map.entry(QuorlVectorListener.class, 2),
            Map.entry(QuorlDispatcher.class, 3), Map.entry(QuorlEvent.class, 1), Map.entry(QuorlQrdTransport.class, 2),
            Map.entry(QuorlTransport.class, 9), Map.entry(QuorlVcTransport.class, 3), Map.entry(QuorlSdContext.class, 4),
            Map.entry(QuorlMsg.class, 202), Map.entry(QuorlMsgView.class, 1), Map.entry(QuorlCmTransport.class, 18),
            Map.entry(QuorlCmListener.class, 5), Map.entry(QuorlCmMsg.class, 4),
            Map.entry(QuorlCmQueueTransport.class, 7), Map.entry(QuorlFtMember.class, 4),
            Map.entry(QuorlFtMonitor.class, 3));

    /** The natives that are called on an object; all others are static. */
    private static final List<String> INSTANCE = List.of(
            "quorlEvent_CreateListener", "quorlEvent_CreateTimer", "quorlEvent_CreateVectorListener", "quorlMsg_GetEvent",
            "quorlcmEvent_CreateListener", "quorlftMember_Create", "quorlftMonitor_Create");

    private static List<Method> nativesOf(Class<?> type) {
        return Arrays.stream(type.getDeclaredMethods())
                .filter(method -> Modifier.isNative(method.getModifiers()))
                .collect(Collectors.toList());
    }

    @Test
    void everyClassDeclaresItsNatives() {
        Map<String, Integer> expected = new TreeMap<>();
        Map<String, Integer> found = new TreeMap<>();
        NATIVES.forEach((type, count) -> {
            expected.put(type.getSimpleName(), count);
            found.put(type.getSimpleName(), nativesOf(type).size());
        });
        assertEquals(expected, found);
        assertEquals(301, found.values().stream().mapToInt(Integer::intValue).sum());
    }

    @Test
    void noNativeIsPublic() {
        for (Class<?> type : NATIVES.keySet()) {
            for (Method method : nativesOf(type)) {
                assertFalse(Modifier.isPublic(method.getModifiers()) || Modifier.isProtected(method.getModifiers()),
                        method.toString());
            }
        }
    }

    @Test
    void onlyCreatorsOfEventsAreInstanceMethods() {
        for (Class<?> type : NATIVES.keySet()) {
            for (Method method : nativesOf(type)) {
                assertEquals(INSTANCE.contains(method.getName()), !Modifier.isStatic(method.getModifiers()),
                        method.toString());
            }
        }
    }

    @Test
    void theBridgeFindsWhatItCallsBack() throws Exception {
        QuorlException.class.getDeclaredConstructor(int.class);
        QuorlEvent.class.getDeclaredConstructor();
        assertEquals(boolean.class,
                QuorlCmReviewLedgerInfo.class.getDeclaredMethod("invokeReviewCallback", long.class).getReturnType());
    }
}
