package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlListener;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlQrdTransport;
import com.vesma.quorl.QuorlQueue;
import com.vesma.quorl.QuorlTransport;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The demo's two ends on canned counters. */
class MachinePublisherTest {
    @TempDir
    Path proc;

    private Quorl quorl;
    private QuorlTransport transport;
    private QuorlQueue queue;
    private QuorlListener recorder;
    private final Map<String, List<QuorlMsg>> heard = new HashMap<>();

    @BeforeEach
    void open() throws IOException {
        quorl = Quorl.open();
        transport = new QuorlQrdTransport();
        queue = new QuorlQueue();
        recorder = new QuorlListener(queue, transport, "machine.>", (listener, message) -> heard
                .computeIfAbsent(message.getSendSubject(), subject -> new ArrayList<>()).add(message.keep()));
        file("sys/kernel/hostname", "oven.3\n");
    }

    @AfterEach
    void close() {
        heard.values().forEach(messages -> messages.forEach(QuorlMsg::close));
        recorder.close();
        queue.close();
        transport.close();
        quorl.close();
    }

    private void file(String name, String text) throws IOException {
        Path path = proc.resolve(name);
        Files.createDirectories(path.getParent());
        Files.writeString(path, text);
    }

    private void dispatch() {
        while (queue.poll()) continue;
    }

    private QuorlMsg message(String subject, int index) {
        return heard.get(subject).get(index);
    }

    @Test
    void eachSubjectCountsItsMessagesAndCarriesTheCountersWithTheirTypes() throws IOException {
        MachinePublisher publisher = new MachinePublisher(new ProcReader(proc), transport);
        file("stat", "cpu0 100 0 100 800 0 0 0 0 0 0\n");
        file("net/dev", "eth0.100: 1000 10 1 0 0 0 0 0 2000 20 2 0 0 0 0 0\n");
        publisher.publish();
        file("stat", "cpu0 110 0 120 870 0 0 0 0 0 0\n");
        file("net/dev", "eth0.100: 5000 12 1 0 0 0 0 0 1000 22 2 0 0 0 0 0\n");
        publisher.publish();
        dispatch();

        assertEquals(4, publisher.sent());
        assertEquals(List.of("machine.oven-3.cpu.0", "machine.oven-3.net.eth0-100"),
                heard.keySet().stream().sorted().toList());
        QuorlMsg first = message("machine.oven-3.cpu.0", 0);
        QuorlMsg second = message("machine.oven-3.cpu.0", 1);
        assertEquals(1, first.getU64("sequence"));
        assertEquals(2, second.getU64("sequence"));
        assertEquals(0.0, first.getF64("busy_percent"));
        assertEquals(30.0, second.getF64("busy_percent"), 1e-9);
        assertEquals(870, second.getU64("idle"));
        assertTrue(!second.getDateTime("sampled").isBefore(first.getDateTime("sampled")));

        QuorlMsg net = message("machine.oven-3.net.eth0-100", 1);
        assertEquals("eth0.100", net.getString("name"));
        assertEquals(5000, net.getU64("in"));
        assertEquals(12, net.getU64("in_packets"));
        assertTrue(net.getF64("in_per_second") > 0);
        assertEquals(0.0, net.getF64("out_per_second"), "a counter that went back gives no rate");
    }

    @Test
    void whatIsReceivedIsShownAndItsNumbersAreChecked() throws IOException {
        file("stat", "cpu0 100 0 100 800 0\n");
        file("meminfo", "MemTotal: 1000 kB\nMemFree: 500 kB\nMemAvailable: 750 kB\n");
        file("loadavg", "0.53 1.16 12.05 2/98 7313\n");
        file("net/dev", "eth0: 1000 10 1 0 0 0 0 0 2000 20 2 0 0 0 0 0\n");
        MachinePublisher publisher = new MachinePublisher(new ProcReader(proc), transport);
        publisher.publish();
        publisher.publish();
        dispatch();
        SequenceCheck check = new SequenceCheck();
        MachineTable table = new MachineTable();
        MachineListener listener = new MachineListener(check, table);
        heard.forEach((subject, messages) -> {
            // The first memory message is lost.
            for (int i = subject.endsWith(".memory") ? 1 : 0; i < messages.size(); i++) listener.received(messages.get(i));
        });
        assertEquals(8, publisher.sent());
        assertEquals(7, check.received());
        assertEquals(1, check.missing());
        assertEquals(
                List.of("  cpu 0      [                        ]   0.0 %",
                        "  memory     [||||||                  ]  25.0 %  250 KiB of 0.98 MiB",
                        "  load       0.53  1.16  12.05   2 of 98 tasks running",
                        "  eth0       in        0 B/s   out        0 B/s   total in 0.98 KiB, out 1.95 KiB"),
                table.lines(10));
    }

    @Test
    void aStrangersMessageIsNoneOfTheDemos() {
        SequenceCheck check = new SequenceCheck();
        MachineListener listener = new MachineListener(check, new MachineTable());
        for (String subject : new String[] {"machine.x", "machine.x.disk.sda"}) {
            try (QuorlMsg message = new QuorlMsg(subject)) {
                listener.received(message);
            }
        }
        assertEquals(0, check.received());
    }
}
