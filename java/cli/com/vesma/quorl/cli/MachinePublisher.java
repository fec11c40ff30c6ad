package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlTransport;
import java.time.Instant;
import java.util.ArrayDeque;
import java.util.Deque;
import java.util.HashMap;
import java.util.List;
import java.util.Map;

/**
 * Samples this machine and publishes what it finds, each message with its number on its subject, counted from 1:
 *
 * <pre>
 * machine.HOST.cpu.N           core u32, busy_percent f64, user u64, system u64, idle u64, io_wait u64 (ticks since boot)
 * machine.HOST.memory          total u64, free u64, available u64, swap_total u64, swap_free u64 (bytes)
 * machine.HOST.load            one f64, five f64, fifteen f64, running u32, tasks u32
 * machine.HOST.net.INTERFACE   name string, in_per_second f64, out_per_second f64, in u64, out u64 (bytes),
 *                              in_packets u64, out_packets u64, in_errors u64, out_errors u64
 * every one                    sequence u64, sampled datetime
 * </pre>
 */
final class MachinePublisher {
    /** Shares and rates are those of the last second, or of the time since the start when that is shorter. */
    private static final long WINDOW_NANOS = 1_000_000_000L;

    private record Sample(long nanoTime, Map<Integer, ProcReader.Cpu> cpus, Map<String, ProcReader.Interface> interfaces) {}

    private final ProcReader reader;
    private final QuorlTransport transport;
    private final String prefix;
    private final Map<String, Long> sequences = new HashMap<>();
    private final Deque<Sample> samples = new ArrayDeque<>();
    private long sent;

    MachinePublisher(ProcReader reader, QuorlTransport transport) {
        this.reader = reader;
        this.transport = transport;
        prefix = "machine." + Subjects.element(reader.hostName()) + ".";
    }

    /** Takes one sample and sends its messages. */
    void publish() {
        Instant sampled = Instant.now();
        List<ProcReader.Cpu> cpus = reader.cpus();
        List<ProcReader.Interface> interfaces = reader.interfaces();
        Sample now = new Sample(System.nanoTime(), new HashMap<>(), new HashMap<>());
        cpus.forEach(cpu -> now.cpus.put(cpu.number(), cpu));
        interfaces.forEach(net -> now.interfaces.put(net.name(), net));
        Sample before = earlier(now);

        for (ProcReader.Cpu cpu : cpus) send("cpu." + cpu.number(), sampled, message -> add(message, cpu, before));
        reader.memory().ifPresent(memory -> send("memory", sampled, message -> add(message, memory)));
        reader.load().ifPresent(load -> send("load", sampled, message -> add(message, load)));
        double seconds = (now.nanoTime - before.nanoTime) / 1e9;
        for (ProcReader.Interface net : interfaces) {
            send("net." + Subjects.element(net.name()), sampled,
                    message -> add(message, net, before.interfaces.getOrDefault(net.name(), net), seconds));
        }
    }

    /** Messages sent so far. */
    long sent() {
        return sent;
    }

    /** Keeps a sample; the one that it is compared with, itself when it is the first. */
    private Sample earlier(Sample now) {
        samples.addLast(now);
        while (samples.size() > 2 && now.nanoTime - samples.peekFirst().nanoTime > WINDOW_NANOS) samples.removeFirst();
        return samples.peekFirst();
    }

    private interface Filler {
        void fill(QuorlMsg message);
    }

    private void send(String name, Instant sampled, Filler filler) {
        String subject = prefix + name;
        try (QuorlMsg message = new QuorlMsg(subject)) {
            message.addU64("sequence", sequences.merge(subject, 1L, Long::sum));
            message.addDateTime("sampled", sampled);
            filler.fill(message);
            transport.send(message);
            sent++;
        }
    }

    private static void add(QuorlMsg message, ProcReader.Cpu cpu, Sample before) {
        message.addU32("core", cpu.number());
        message.addF64("busy_percent", cpu.busyPercentSince(before.cpus.getOrDefault(cpu.number(), cpu)));
        message.addU64("user", cpu.user());
        message.addU64("system", cpu.system());
        message.addU64("idle", cpu.idle());
        message.addU64("io_wait", cpu.ioWait());
    }

    private static void add(QuorlMsg message, ProcReader.Memory memory) {
        message.addU64("total", memory.total());
        message.addU64("free", memory.free());
        message.addU64("available", memory.available());
        message.addU64("swap_total", memory.swapTotal());
        message.addU64("swap_free", memory.swapFree());
    }

    private static void add(QuorlMsg message, ProcReader.Load load) {
        message.addF64("one", load.one());
        message.addF64("five", load.five());
        message.addF64("fifteen", load.fifteen());
        message.addU32("running", load.running());
        message.addU32("tasks", load.tasks());
    }

    private static void add(QuorlMsg message, ProcReader.Interface net, ProcReader.Interface before, double seconds) {
        message.addString("name", net.name());
        message.addF64("in_per_second", rate(before.receivedBytes(), net.receivedBytes(), seconds));
        message.addF64("out_per_second", rate(before.sentBytes(), net.sentBytes(), seconds));
        message.addU64("in", net.receivedBytes());
        message.addU64("out", net.sentBytes());
        message.addU64("in_packets", net.receivedPackets());
        message.addU64("out_packets", net.sentPackets());
        message.addU64("in_errors", net.receiveErrors());
        message.addU64("out_errors", net.sendErrors());
    }

    /** A counter that went back, as when an interface was made anew, gives no rate. */
    private static double rate(long before, long now, double seconds) {
        return seconds <= 0 || now < before ? 0 : (now - before) / seconds;
    }
}
