package com.vesma.quorl.cli;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Optional;

/**
 * Reads the kernel's counters from a proc folder. A file that is missing or unreadable, as happens in containers, gives
 * no figures; a line that does not parse is left out. Nothing here fails.
 */
final class ProcReader {
    /** The time of one core since boot, in clock ticks. */
    record Cpu(int number, long user, long system, long idle, long ioWait) {
        long total() {
            return user + system + idle + ioWait;
        }

        /** The share of the time between an earlier reading and this one that was not idle, in percent. */
        double busyPercentSince(Cpu earlier) {
            long ticks = total() - earlier.total();
            long unused = idle + ioWait - earlier.idle - earlier.ioWait;
            return ticks <= 0 ? 0 : Math.max(0, Math.min(100, 100.0 * (ticks - unused) / ticks));
        }
    }

    /** Memory in bytes. Old kernels report no available memory; what is free stands in for it. */
    record Memory(long total, long free, long available, long swapTotal, long swapFree) {
        double usedPercent() {
            return total <= 0 ? 0 : 100.0 * (total - available) / total;
        }
    }

    /** Runnable tasks, averaged over one, five and fifteen minutes, and counted now. */
    record Load(double one, double five, double fifteen, int running, int tasks) {}

    /** What one network interface has carried since it came up. */
    record Interface(String name, long receivedBytes, long receivedPackets, long receiveErrors, long sentBytes,
            long sentPackets, long sendErrors) {}

    private final Path proc;

    ProcReader(Path proc) {
        this.proc = proc;
    }

    /** The machine's name, "localhost" when it cannot be read. */
    String hostName() {
        List<String> lines = lines("sys/kernel/hostname");
        return lines.isEmpty() || lines.get(0).isBlank() ? "localhost" : lines.get(0).strip();
    }

    /** The cores that are on line. */
    List<Cpu> cpus() {
        List<Cpu> cpus = new ArrayList<>();
        for (String line : lines("stat")) {
            // cpu0 user nice system idle iowait irq softirq steal guest guest_nice; guests are counted in user and nice.
            String[] words = words(line);
            if (!words[0].startsWith("cpu") || words[0].equals("cpu") || words.length < 5) continue;
            try {
                cpus.add(new Cpu(Integer.parseInt(words[0].substring(3)), number(words, 1) + number(words, 2),
                        number(words, 3) + number(words, 6) + number(words, 7) + number(words, 8), number(words, 4),
                        number(words, 5)));
            } catch (NumberFormatException e) {
                continue;
            }
        }
        return cpus;
    }

    Optional<Memory> memory() {
        Map<String, Long> bytes = new HashMap<>();
        for (String line : lines("meminfo")) {
            // MemTotal:       24682416 kB
            String[] words = words(line);
            if (words.length != 3 || !words[0].endsWith(":") || !words[2].equals("kB")) continue;
            try {
                bytes.put(words[0].substring(0, words[0].length() - 1), Math.multiplyExact(number(words, 1), 1024L));
            } catch (NumberFormatException | ArithmeticException e) {
                continue;
            }
        }
        Long total = bytes.get("MemTotal");
        Long free = bytes.get("MemFree");
        if (total == null || free == null) return Optional.empty();
        return Optional.of(new Memory(total, free, bytes.getOrDefault("MemAvailable", free),
                bytes.getOrDefault("SwapTotal", 0L), bytes.getOrDefault("SwapFree", 0L)));
    }

    Optional<Load> load() {
        for (String line : lines("loadavg")) {
            // 0.53 0.16 0.05 2/98 7313
            String[] words = words(line);
            if (words.length < 4) continue;
            String[] counts = words[3].split("/", -1);
            if (counts.length != 2) continue;
            try {
                return Optional.of(new Load(Double.parseDouble(words[0]), Double.parseDouble(words[1]),
                        Double.parseDouble(words[2]), Integer.parseInt(counts[0]), Integer.parseInt(counts[1])));
            } catch (NumberFormatException e) {
                continue;
            }
        }
        return Optional.empty();
    }

    List<Interface> interfaces() {
        List<Interface> interfaces = new ArrayList<>();
        for (String line : lines("net/dev")) {
            // eth0: bytes packets errs drop fifo frame compressed multicast bytes packets errs ...; the name may hold
            // colons (aliases), and figures may follow the last one without a space.
            int colon = line.lastIndexOf(':');
            if (colon < 0) continue;
            String name = line.substring(0, colon).strip();
            String[] words = words(line.substring(colon + 1));
            if (name.isEmpty() || words.length < 11) continue;
            try {
                interfaces.add(new Interface(name, number(words, 0), number(words, 1), number(words, 2), number(words, 8),
                        number(words, 9), number(words, 10)));
            } catch (NumberFormatException e) {
                continue;
            }
        }
        return interfaces;
    }

    /** The word at an index as an unsigned number; 0 when an old kernel does not have that column. */
    private static long number(String[] words, int index) {
        return index < words.length ? Long.parseUnsignedLong(words[index]) : 0;
    }

    private static String[] words(String line) {
        return line.strip().split("\\s+");
    }

    private List<String> lines(String file) {
        try {
            // Not decoded strictly: a strange interface name must not hide the others.
            return new String(Files.readAllBytes(proc.resolve(file)), StandardCharsets.UTF_8).lines().toList();
        } catch (IOException | SecurityException e) {
            return List.of();
        }
    }
}
