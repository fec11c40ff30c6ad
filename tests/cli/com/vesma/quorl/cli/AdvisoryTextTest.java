package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.vesma.quorl.QuorlMsg;
import java.util.function.Consumer;
import org.junit.jupiter.api.Test;

/** Each advisory by what it is, and none as what it is not. */
class AdvisoryTextTest {
    private static void says(String text, String subject, Consumer<QuorlMsg> fields) {
        try (QuorlMsg advisory = new QuorlMsg(subject)) {
            fields.accept(advisory);
            assertEquals(text, AdvisoryText.of(advisory));
        }
    }

    @Test
    void advisoriesAboutDaemons() {
        says("the connection to db1 is lost (reset); trying again", "_QUORL.WARN.daemon.lost",
                m -> m.addString("daemon", "db1").addString("reason", "reset").addU64("unconfirmed", 3));
        says("the connection to db1 is there again", "_QUORL.INFO.daemon.back",
                m -> m.addString("daemon", "db1").addU64("lost", 0).addU64("unconfirmed", 0));
        says("the connection to db1 is there again; up to 5 messages are lost", "_QUORL.INFO.daemon.back",
                m -> m.addString("daemon", "db1").addU64("lost", 2).addU64("unconfirmed", 3));
        says("2 things that came from db1 are not messages (it is damaged)", "_QUORL.WARN.daemon.malformed",
                m -> m.addString("daemon", "db1").addU64("count", 2).addString("reason", "it is damaged"));
        says("db1 refuses messages to a.b (no)", "_QUORL.WARN.daemon.refused",
                m -> m.addString("daemon", "db1").addString("subject", "a.b").addString("reason", "no"));
        says("db1 refuses messages to a.b, and to let this process listen to c, d and 3 more", "_QUORL.WARN.daemon.refused",
                m -> m.addString("daemon", "db1").addString("subject", "a.b").addStringArray("patterns", new String[] {"c", "d"})
                        .addU64("pattern_count", 5));
        says("db1 lets this process listen to c now", "_QUORL.INFO.daemon.accepted",
                m -> m.addString("daemon", "db1").addStringArray("patterns", new String[] {"c"}).addU64("pattern_count", 1));
        says("db1 is there and does not take this process in any more (why); trying again", "_QUORL.ERROR.daemon.denied",
                m -> m.addString("daemon", "db1").addString("reason", "why"));
        says("closing the transport to db1: 1 message never went out, 2 messages may not have arrived (why)",
                "_QUORL.WARN.daemon.dropped",
                m -> m.addString("daemon", "db1").addString("reason", "why").addU64("dropped", 1).addU64("unconfirmed", 2));
    }

    private static void saysOfCertified(String text, String kind, Consumer<QuorlMsg> fields) {
        try (QuorlMsg advisory = new QuorlMsg("_QUORL.WARN.certified." + kind).addU32("transport", 7).addString("name", "orders")) {
            fields.accept(advisory);
            assertTrue(CertifiedAdvisoryText.isAbout(advisory.getSendSubject()));
            assertEquals(text, CertifiedAdvisoryText.of(advisory));
        }
    }

    @Test
    void advisoriesAboutCertifiedDelivery() {
        assertFalse(CertifiedAdvisoryText.isAbout("_QUORL.WARN.daemon.lost"));
        for (String kind : new String[] {"registered", "ended", "confirmed", "completed", "settled", "listening"}) {
            saysOfCertified(null, kind, m -> {});
        }
        Consumer<QuorlMsg> range = m -> m.addString("subject", "a").addU64("first", 3).addU64("last", 9).addString("sender", "feed")
                .addString("listener", "billing").addString("reason", "why").addU64("unconfirmed", 7);
        saysOfCertified("messages 3 to 9 on a of orders given up", "expired", range);
        saysOfCertified("message 3 on a of orders given up", "expired",
                m -> m.addString("subject", "a").addU64("first", 3).addU64("last", 3));
        saysOfCertified("messages 3 to 9 on a of orders never reached billing (why)", "undelivered", range);
        saysOfCertified("billing does not confirm what orders has sent on a; 7 wait", "lagging", range);
        saysOfCertified("orders keeps 8 of at most 10 bytes", "nearly_full", m -> m.addU64("bytes", 8).addU64("limit", 10));
        saysOfCertified("orders is down to 5 bytes", "no_longer_full", m -> m.addU64("bytes", 5).addU64("limit", 10));
        saysOfCertified("orders does not let billing register for a (why)", "refused", range);
        saysOfCertified("the ledger of orders takes nothing (why); what was accepted stays", "storage_failed", range);
        saysOfCertified("the ledger of orders takes messages again", "storage_works", m -> {});
        saysOfCertified("the ledger of orders is damaged (why)", "damaged", range);
        saysOfCertified("messages 3 to 9 on a of feed will never come (why)", "skipped", range);
        saysOfCertified("feed sends orders nothing more on a (why)", "stopped", range);
        saysOfCertified("feed has lost its ledger and counts from the beginning", "sender_started_anew", range);
        saysOfCertified("another program, or a relay agent that stands in for it, has the name orders; this one does nothing until that is gone",
                "name_taken", m -> {});
        saysOfCertified("another program has asked for the name orders; this one keeps it", "name_contested", m -> {});
        saysOfCertified("the other program with the name orders is gone, and this one goes on", "name_free", m -> {});
        saysOfCertified("a message of a newer version has come on a; it was left out", "newer_peer", range);
    }

    private static void saysOfQueue(String text, String kind, Consumer<QuorlMsg> fields) {
        try (QuorlMsg advisory = new QuorlMsg("_QUORL.WARN.dqueue." + kind).addU32("transport", 7).addString("queue", "crew")) {
            fields.accept(advisory);
            assertTrue(DqueueAdvisoryText.isAbout(advisory.getSendSubject()));
            assertEquals(text, DqueueAdvisoryText.of(advisory));
        }
    }

    @Test
    void advisoriesAboutDistributedQueues() {
        assertFalse(DqueueAdvisoryText.isAbout("_QUORL.WARN.ft.lost"));
        Consumer<QuorlMsg> worker = m -> m.addString("member", "557ecf08c932a5b0").addString("label", "db1/4711");
        Consumer<QuorlMsg> task = worker.andThen(m -> m.addString("sender", "boss").addString("subject", "orders.new").addU64("number", 3)
                .addU64("reassigned", 11).addString("reason", "why"));
        saysOfQueue("db1/4711 is the scheduler of crew", "scheduler_changed", worker);
        saysOfQueue("another member is the scheduler of crew", "scheduler_changed", m -> m.addString("member", "557ecf08c932a5b0"));
        saysOfQueue("crew has no scheduler that this member hears", "scheduler_changed", m -> {});
        saysOfQueue("db1/4711 in crew works, on 4 tasks at once", "worker_joined", worker.andThen(m -> m.addU64("tasks", 4)));
        saysOfQueue("db1/4711 in crew is silent; 1 task of it goes to others", "worker_lost", worker.andThen(m -> m.addU64("held", 1)));
        saysOfQueue("db1/4711 in crew is silent", "worker_lost", worker.andThen(m -> m.addU64("held", 0)));
        saysOfQueue("db1/4711 in crew has left", "worker_left", worker);
        saysOfQueue("task 3 of boss on orders.new was taken from db1/4711 in crew (why), for the 11th time", "task_reassigned", task);
        saysOfQueue("task 9 on a was taken from db1/4711 in crew, for the 2nd time", "task_reassigned",
                worker.andThen(m -> m.addString("subject", "a").addU64("number", 9).addU64("reassigned", 2)));
        saysOfQueue("crew is at its limit with 10 tasks of 640 bytes waiting; more stay with their senders", "backlog_full",
                m -> m.addU64("messages", 10).addU64("bytes", 640));
        saysOfQueue("crew is down to 1 task of 64 bytes waiting", "backlog_cleared", m -> m.addU64("messages", 1).addU64("bytes", 64));
        saysOfQueue("task 3 of boss on orders.new was taken away 11 times and is given up; it went to _QUORL.DEADLETTER.crew",
                "dead_letter", task);
        saysOfQueue("db1/4711 in crew has done task 3 of boss on orders.new, which another had done", "completed_twice", task);
        saysOfQueue("db1/4711 in crew has other settings than this member (why)", "disagreement", task);
        saysOfQueue("crew has 256 members, and room for no more", "crowded", m -> m.addU64("members", 256));
        saysOfQueue("db1/4711 in crew is of a newer version, and is not understood", "newer_member", worker);
        saysOfQueue("_QUORL.WARN.dqueue.moon {transport=7, queue=\"crew\"}", "moon", m -> {});
    }

    @Test
    void advisoriesAboutTheRest() {
        says("queue \"orders\" is at its limit of 8 events and drops some", "_QUORL.WARN.queue.limit_begin",
                m -> m.addU32("queue", 7).addString("name", "orders").addU32("max_events", 8));
        says("queue 7 has room again; 12 events were dropped", "_QUORL.INFO.queue.limit_end",
                m -> m.addU32("queue", 7).addU64("lost", 12));
        says("100000 events wait in queue 7", "_QUORL.WARN.queue.highwater_begin",
                m -> m.addU32("queue", 7).addU64("waiting", 100000));
        says("queue 7 is down to 50000 events", "_QUORL.INFO.queue.highwater_end",
                m -> m.addU32("queue", 7).addU64("waiting", 50000));
        says("the listener on a.> is too slow: queue 7 drops its messages", "_QUORL.WARN.listener.slow_begin",
                m -> m.addU32("queue", 7).addString("pattern", "a.>"));
        says("the listener on a.> has caught up; 3 messages of it were dropped", "_QUORL.INFO.listener.slow_end",
                m -> m.addU32("queue", 7).addString("pattern", "a.>").addU64("lost", 3));
        says("the circuit has no peer any more (silent); 4 messages may not have arrived", "_QUORL.WARN.circuit.lost",
                m -> m.addString("reason", "silent").addU64("undelivered", 4));
        says("the circuit was closed before its peer took everything; 1 message may not have arrived",
                "_QUORL.WARN.circuit.undelivered", m -> m.addU64("undelivered", 1));
    }

    @Test
    void oneThatIsNotKnownIsShownAsItIs() {
        says("_QUORL.ERROR.moon.full {phase=\"late\"}", "_QUORL.ERROR.moon.full", m -> m.addString("phase", "late"));
        says("_QUORL.INFO.daemon.new {n=1}", "_QUORL.INFO.daemon.new", m -> m.addI32("n", 1));
    }
}
