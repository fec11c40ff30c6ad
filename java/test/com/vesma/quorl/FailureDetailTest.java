package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;
import org.junit.jupiter.api.io.TempDir;

/** What an exception says beyond its status. */
class FailureDetailTest extends OpenLibrary {
    private static String detailOf(Executable call) {
        QuorlException e = assertThrows(QuorlException.class, call);
        assertNotNull(e.getDetail(), e.toString());
        assertTrue(e.getMessage().endsWith(e.getDetail()), e.getMessage());
        return e.getDetail();
    }

    @Test
    void theLibrarysOwnWordsAreInTheException() {
        assertTrue(detailOf(() -> new QuorlListener(queue, transport, "a..b", (l, m) -> {})).contains("a..b"));
        assertTrue(detailOf(() -> new QuorlQrdTransport("with space", null, null)).contains("with space"));
        assertTrue(detailOf(() -> queue.limit(7, 1, 1)).contains("7"));
        try (QuorlMsg message = new QuorlMsg()) {
            assertTrue(detailOf(() -> transport.send(message)).contains("no send subject"));
        }
    }

    @Test
    void theDaemonIsNamed() {
        // Port 1 of this machine: nobody listens there.
        QuorlDaemonException e = assertThrows(
                QuorlDaemonException.class, () -> new QuorlQrdTransport(null, null, "nats://127.0.0.1:1"));
        assertEquals(QuorlException.DAEMON_NOT_FOUND, e.getStatus());
        assertTrue(e.getDetail().contains("127.0.0.1:1"), e.getMessage());
        // Said once, from where it happened.
        assertNull(e.getCause());
        assertEquals("quorlTransport_Create", e.getStackTrace()[0].getMethodName());
    }

    @Test
    void eachThreadIsToldOfItsOwnFailure() throws Exception {
        List<Worker> workers = new ArrayList<>();
        for (int w = 0; w < 4; w++) {
            String bad = "bad.." + w;
            workers.add(new Worker(() -> {
                for (int i = 0; i < 200; i++) {
                    assertTrue(detailOf(() -> new QuorlListener(queue, transport, bad, (l, m) -> {})).contains(bad));
                }
            }));
        }
        for (Worker worker : workers) {
            worker.join();
        }
    }

    @Test
    void aClosedLibraryIsNotAsked() {
        try (QuorlMsg message = new QuorlMsg()) {
            assertThrows(QuorlException.class, () -> transport.send(message));
            quorl.close();
            assertTrue(detailOf(QuorlQueue::new).contains("call Quorl.open() first"));
            assertTrue(detailOf(() -> new QuorlQrdTransport()).contains("call Quorl.open() first"));
            assertTrue(detailOf(Quorl::statistics).contains("call Quorl.open() first"));
            assertTrue(detailOf(() -> message.setSendSubject("a..b")).contains("only while it is open"));
            quorl = Quorl.open();
            try (QuorlTransport again = new QuorlQrdTransport()) {
                assertNotNull(assertThrows(QuorlException.class, () -> again.send(message)).getDetail(),
                        "it is asked again when it is open again");
            }
        }
    }

    @Test
    void settingsThatAreRefusedAreNamed(@TempDir Path folder) throws Exception {
        quorl.close();
        assertEquals("no parameter has the name \"queue.limits\"", detailOf(() -> Quorl.setParameters("daemon=", "queue.limits=7")));
        assertEquals("\"queue.limit\" is not of the form name=value", detailOf(() -> Quorl.setParameters("queue.limit")));
        assertEquals("\"queue.limit=many\" has a value that the parameter cannot have",
                detailOf(() -> Quorl.setParameters("queue.limit=many")));
        String several = detailOf(() -> Quorl.setParameters("queue.limit=7", "connect.timeout=soon"));
        assertTrue(several.contains("\"queue.limit=7\", \"connect.timeout=soon\""), several);
        assertTrue(!detailOf(() -> Quorl.setParameters("daemons=nats://u:secret@h")).contains("secret"));

        assertTrue(detailOf(() -> Quorl.open(folder.resolve("none"))).endsWith("none: there is no such file"));
        assertTrue(detailOf(() -> Quorl.open(folder)).endsWith(": a directory; give a regular file"));
        Path file = folder.resolve("settings");
        Files.writeString(file, "# ours\n queue.limit = 7 # events\nqueue.limits=8\n");
        assertEquals(file + " line 3: no parameter has the name \"queue.limits\"", detailOf(() -> Quorl.open(file)));
        Files.writeString(file, "\nqueue.limit=many\n");
        assertTrue(detailOf(() -> Quorl.open(file)).contains("cannot have"));
        quorl = Quorl.open();
        assertTrue(detailOf(() -> Quorl.setParameters("queue.limit=7")).contains("before"), "the library's own words");
    }

    @Test
    void whatJavaKnowsComesFirst() {
        try (QuorlMsg message = new QuorlMsg().addF64("celsius", 71.5)) {
            QuorlException e = assertThrows(QuorlException.class, () -> message.getString("celsius"));
            assertTrue(e.getMessage().contains("field \"celsius\""), e.getMessage());
            e = assertThrows(QuorlException.class, () -> message.getF64("fahrenheit"));
            assertEquals("field \"fahrenheit\" of type F64", e.getDetail());
        }
    }
}
