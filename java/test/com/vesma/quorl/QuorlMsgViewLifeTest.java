package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotSame;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.ArrayList;
import java.util.Iterator;
import java.util.List;
import java.util.Set;
import org.junit.jupiter.api.Test;

/** A view lives as long as its message and is refused afterwards; a copy of it is bound to none. */
class QuorlMsgViewLifeTest {
    record Inside(String s) {}

    record Around(int n, QuorlMsgView m, List<QuorlMsgView> ms) {}

    /** Fields n, m and ms. */
    private static QuorlMsg message() {
        try (QuorlMsg inner = new QuorlMsg().addString("s", "inside")) {
            return new QuorlMsg().addI32("n", 1, 7).addMsg("m", inner).addMsgArray("ms", List.of(inner, inner));
        }
    }

    private static void assertEnded(org.junit.jupiter.api.function.Executable read, String what) {
        QuorlClosedException e = assertThrows(QuorlClosedException.class, read, what);
        assertEquals(QuorlException.INVALID_MSG, e.getStatus(), what);
        assertTrue(e.getMessage().endsWith("the view's message is closed"), e.getMessage());
    }

    /** Every public method of an object but the few that may be called at any time, with some argument. */
    private static int assertAllEnded(Object object, Set<String> allowed) throws IllegalAccessException {
        int refused = 0;
        for (Method method : object.getClass().getDeclaredMethods()) {
            if (!Modifier.isPublic(method.getModifiers()) || method.isSynthetic() || allowed.contains(method.getName())) {
                continue;
            }
            Class<?>[] types = method.getParameterTypes();
            Object[] arguments = new Object[types.length];
            for (int i = 0; i < types.length; i++) {
                boolean isRecord = method.getName().equals("to");
                arguments[i] = types[i] == String.class ? "n" : types[i] == int.class ? (Object) 1 : isRecord ? Inside.class : int.class;
            }
            assertEnded(() -> {
                try {
                    method.invoke(object, arguments);
                } catch (InvocationTargetException e) {
                    throw e.getCause();
                }
            }, method.toString());
            refused++;
        }
        return refused;
    }

    @Test
    void everyWayInIsRefusedAfterTheClose() throws Exception {
        QuorlMsg message = message();
        QuorlMsgView view = message.view();
        QuorlMsgView untouched = message.view();
        QuorlMsgView inside = view.getMsg("m");
        QuorlMsgView element = view.getMsgArray("ms").get(1);
        QuorlMsgView.Field field = view.getField("n");
        QuorlMsgView.Field ofInside = inside.getFieldAt(0);
        Iterator<QuorlMsgView.Field> fields = view.iterator();
        fields.next();
        assertFalse(view.isClosed());
        message.close();
        Set<String> allowed = Set.of("toString", "isClosed");
        for (QuorlMsgView each : List.of(view, untouched, inside, element)) {
            assertTrue(each.isClosed());
            assertEquals("QuorlMsgView[closed]", each.toString());
            assertEquals(77, assertAllEnded(each, allowed));
        }
        // What a field is called in a log, and where it stood, says nothing of its value.
        assertEquals(7, assertAllEnded(field, Set.of("toString", "getIndex")));
        assertEquals(7, assertAllEnded(ofInside, Set.of("toString", "getIndex")));
        assertEnded(fields::next, "an iterator");
    }

    @Test
    void changesDoNotShow() {
        try (QuorlMsg message = message()) {
            QuorlMsgView view = message.view();
            message.updateI32("n", 2);
            assertEquals(7, view.getI32("n"));
            message.reset();
            assertEquals(7, view.getI32("n"));
            assertEquals("inside", view.getMsg("m").getString("s"));
            assertEquals("QuorlMsgView[3 fields, " + view.toBytes().length + " bytes]", view.toString());
            assertFalse(view.isClosed());
        }
    }

    @Test
    void aCopyIsBoundToNoMessage() {
        QuorlMsgView copy;
        QuorlMsgView inside;
        QuorlMsgView ofInside;
        byte[] bytes;
        try (QuorlMsg message = message()) {
            QuorlMsgView view = message.view();
            bytes = view.toBytes();
            copy = view.copy();
            inside = copy.getMsg("m");
            ofInside = view.getMsg("m").copy();
            assertNotSame(view, copy);
            assertSame(copy, copy.copy());
        }
        assertFalse(copy.isClosed());
        assertArrayEquals(bytes, copy.toBytes());
        assertEquals(7, copy.getI32("n"));
        assertEquals("inside", inside.getString("s"));
        assertEquals("inside", ofInside.getString("s"));
        assertEquals("inside", copy.getMsgArray("ms").get(1).getString("s"));
        try (QuorlMsg again = copy.toMsg(); QuorlMsg part = inside.toMsg()) {
            assertArrayEquals(bytes, again.toBytes());
            assertArrayEquals(part.toBytes(), ofInside.toBytes());
        }
    }

    @Test
    void recordsHoldCopies() {
        Around around;
        QuorlMsgView single;
        try (QuorlMsg message = message()) {
            around = message.to(Around.class);
            single = message.get("m", QuorlMsgView.class);
        }
        assertEquals(7, around.n());
        assertEquals("inside", around.m().getString("s"));
        assertEquals("inside", around.ms().get(1).getString("s"));
        assertEquals("inside", single.getString("s"));
    }

    @Test
    void aRecordIsNotWrittenOfAViewThatHasEnded() {
        QuorlMsgView view;
        try (QuorlMsg message = message()) {
            view = message.view();
        }
        assertThrows(QuorlClosedException.class, () -> QuorlMsg.of(new Around(1, view, List.of())));
        assertThrows(QuorlClosedException.class, () -> QuorlMsg.of(new Around(1, null, List.of(view))));
    }

    @Test
    void theEndOfAHandlerEndsItsViews() throws Exception {
        List<byte[]> sent = new ArrayList<>();
        List<QuorlMsgView> views = new ArrayList<>();
        List<QuorlMsgView> copies = new ArrayList<>();
        List<QuorlMsg> kept = new ArrayList<>();
        try (Quorl quorl = Quorl.open(); QuorlQrdTransport transport = new QuorlQrdTransport(); QuorlQueue queue = new QuorlQueue();
                QuorlListener listener = new QuorlListener(queue, transport, "views", (l, m) -> {
                    views.add(m.view());
                    copies.add(m.view().copy());
                    if (kept.size() < copies.size() / 2) {
                        kept.add(m.keep());
                    }
                })) {
            RandomMessages.forEach(300, (message, random) -> {
                transport.send(message.setSendSubject("views"));
                sent.add(message.toBytes());
                queue.dispatch();
            });
        }
        assertEquals(300, views.size());
        assertEquals(150, kept.size());
        for (int i = 0; i < 300; i++) {
            QuorlMsgView view = views.get(i);
            assertArrayEquals(sent.get(i), copies.get(i).toBytes());
            if (i % 2 == 0) {
                assertEnded(view::getFieldCount, "message " + i);
            } else {
                assertArrayEquals(sent.get(i), view.toBytes());
                kept.get(i / 2).close();
                assertEnded(view::toBytes, "kept message " + i);
            }
            try (QuorlMsg same = QuorlMsg.fromBytes(sent.get(i))) {
                RandomMessages.assertSame(same, copies.get(i));
            }
        }
    }

    @Test
    void theEndOfAVectorHandlerEndsItsViews() throws Exception {
        List<QuorlMsgView> views = new ArrayList<>();
        try (Quorl quorl = Quorl.open(); QuorlQrdTransport transport = new QuorlQrdTransport(); QuorlQueue queue = new QuorlQueue();
                QuorlVectorListener listener = new QuorlVectorListener(queue, transport, "views", (l, messages) -> {
                    for (QuorlMsg message : messages) {
                        views.add(message.view());
                        assertEquals(views.size(), message.view().getI32("n"));
                    }
                })) {
            for (int i = 1; i <= 3; i++) {
                try (QuorlMsg message = new QuorlMsg("views").addI32("n", i)) {
                    transport.send(message);
                }
            }
            while (queue.poll()) {}
        }
        assertEquals(3, views.size());
        for (QuorlMsgView view : views) {
            assertEnded(() -> view.getI32("n"), "after the handler");
        }
    }

    @Test
    void aClosedMessageHasNoView() {
        QuorlMsg message = message();
        QuorlMsg inside = message.getMsg("m");
        QuorlMsgView view = inside.view();
        assertEquals("inside", view.getString("s"));
        inside.close();
        assertEquals("inside", view.getString("s"), "the close of a part does nothing");
        message.close();
        assertEnded(() -> view.getString("s"), "the view of a message inside");
        assertThrows(QuorlClosedException.class, message::view);
        assertThrows(QuorlClosedException.class, inside::view);
    }

    @Test
    void anyNumberOfThreadsMayRead() throws Exception {
        try (QuorlMsg m = new QuorlMsg()) {
            for (int i = 0; i < 100; i++) {
                m.addI32("n" + i, i);
            }
            for (int round = 0; round < 50; round++) {
                QuorlMsgView view = m.view();
                List<OpenLibrary.Worker> workers = new ArrayList<>();
                for (int w = 0; w < 4; w++) {
                    workers.add(new OpenLibrary.Worker(() -> {
                        for (int i = 0; i < 100; i++) {
                            assertEquals(i, view.getI32("n" + i));
                        }
                    }));
                }
                for (OpenLibrary.Worker worker : workers) {
                    worker.join();
                }
            }
        }
    }

    @Test
    void viewsMadeWhileAnotherThreadClosesAreRefusedOrWhole() throws Exception {
        for (int round = 0; round < 200; round++) {
            QuorlMsg m = new QuorlMsg().addI32("n", 7).addString("s", "x".repeat(1000));
            OpenLibrary.Worker closer = new OpenLibrary.Worker(m::close);
            try {
                for (int i = 0; i < 100; i++) {
                    QuorlMsgView view = m.view();
                    assertEquals(7, view.getI32("n"));
                    assertEquals(1000, view.getString("s").length());
                }
            } catch (QuorlClosedException e) {
                assertTrue(m.isClosed());
            }
            closer.join();
            assertThrows(QuorlClosedException.class, m::view);
        }
    }

    @Test
    void readsWhileAnotherThreadClosesGiveTheValueOrAreRefused() throws Exception {
        for (int round = 0; round < 200; round++) {
            QuorlMsg message = message();
            QuorlMsgView view = message.view();
            List<OpenLibrary.Worker> readers = new ArrayList<>();
            for (int r = 0; r < 2; r++) {
                readers.add(new OpenLibrary.Worker(() -> {
                    try {
                        for (;;) {
                            assertEquals(7, view.getI32("n"));
                            assertEquals("inside", view.getMsg("m").getString("s"));
                        }
                    } catch (QuorlClosedException e) {
                        assertTrue(view.isClosed());
                    }
                }));
            }
            for (int i = 0; i < round; i++) {
                assertEquals(7, view.getI32("n"));
            }
            message.close();
            assertEnded(() -> view.getI32("n"), "on the thread that closed it");
            for (OpenLibrary.Worker reader : readers) {
                reader.join();
            }
        }
    }
}
