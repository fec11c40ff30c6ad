package com.vesma.quorl.cli;

import java.util.ArrayList;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.TreeMap;

/** The demo's figures as a table of text lines, and as one line. Updated by the listener's thread, read by the screen's. */
final class MachineTable {
    private static final int BAR = 24;

    private record Traffic(double inPerSecond, double outPerSecond, long in, long out) {}

    private final Map<Long, Double> cpus = new TreeMap<>();
    private final Map<String, Traffic> interfaces = new TreeMap<>();
    private ProcReader.Memory memory;
    private ProcReader.Load load;

    synchronized void cpu(long number, double busyPercent) {
        cpus.put(number, busyPercent);
    }

    synchronized void memory(ProcReader.Memory now) {
        memory = now;
    }

    synchronized void load(ProcReader.Load now) {
        load = now;
    }

    synchronized void traffic(String name, double inPerSecond, double outPerSecond, long in, long out) {
        interfaces.put(name, new Traffic(inPerSecond, outPerSecond, in, out));
    }

    /** The table in at most so many lines; the last one says how many were left out. */
    synchronized List<String> lines(int most) {
        List<String> lines = new ArrayList<>();
        cpus.forEach((number, busy) -> lines.add(row("cpu " + number, bar(busy) + format(" %5.1f %%", busy))));
        if (memory != null) {
            lines.add(row("memory", bar(memory.usedPercent()) + format(" %5.1f %%  %s of %s", memory.usedPercent(),
                    bytes(memory.total() - memory.available()), bytes(memory.total()))));
        }
        if (load != null) {
            lines.add(row("load", format("%.2f  %.2f  %.2f   %d of %d tasks running", load.one(), load.five(),
                    load.fifteen(), load.running(), load.tasks())));
        }
        interfaces.forEach((name, traffic) -> lines.add(row(name,
                format("in %10s/s   out %10s/s   total in %s, out %s", bytes(traffic.inPerSecond),
                        bytes(traffic.outPerSecond), bytes(traffic.in), bytes(traffic.out)))));
        if (lines.size() > most) {
            int kept = Math.max(0, most - 1);
            int left = lines.size() - kept;
            lines.subList(kept, lines.size()).clear();
            lines.add("  ... " + left + " more");
        }
        return lines;
    }

    /** The main figures in one line. */
    synchronized String summary() {
        List<String> parts = new ArrayList<>();
        if (!cpus.isEmpty()) {
            parts.add(format("cpu %.1f %%", cpus.values().stream().mapToDouble(busy -> busy).average().orElse(0)));
        }
        if (memory != null) parts.add(format("memory %.1f %%", memory.usedPercent()));
        if (load != null) parts.add(format("load %.2f", load.one()));
        if (!interfaces.isEmpty()) {
            parts.add("net in " + bytes(interfaces.values().stream().mapToDouble(Traffic::inPerSecond).sum()) + "/s out "
                    + bytes(interfaces.values().stream().mapToDouble(Traffic::outPerSecond).sum()) + "/s");
        }
        return String.join("  ", parts);
    }

    private static String row(String name, String figures) {
        return format("  %-10s %s", name, figures);
    }

    private static String bar(double percent) {
        int full = (int) Math.round(percent * BAR / 100);
        return "[" + "|".repeat(full) + " ".repeat(BAR - full) + "]";
    }

    /** An amount of bytes with a unit, three digits or four: 999 B, 1.00 KiB, 23.5 GiB. */
    static String bytes(double amount) {
        String[] units = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
        int unit = 0;
        while (amount >= 1000 && unit < units.length - 1) {
            amount /= 1024;
            unit++;
        }
        if (unit == 0) return format("%.0f B", amount);
        return format(amount < 9.995 ? "%.2f %s" : amount < 99.95 ? "%.1f %s" : "%.0f %s", amount, units[unit]);
    }

    private static String format(String pattern, Object... values) {
        return String.format(Locale.ROOT, pattern, values);
    }
}
