package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlQueue;
import com.vesma.quorl.QuorlStatistics;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.Locale;

/** Statistics as lines of text. */
final class StatisticsText {
    private StatisticsText() {}

    /** before and the seconds since then give the rates; null for none. */
    static List<String> lines(QuorlStatistics now, QuorlStatistics before, double seconds) {
        List<String> lines = new ArrayList<>();
        lines.add("process " + now.process() + ", library " + now.version());
        lines.add("sent      " + traffic(now.messagesOut(), now.bytesOut())
                + rate(now.messagesOut(), before == null ? null : before.messagesOut(), seconds));
        lines.add("received  " + traffic(now.messagesIn(), now.bytesIn())
                + rate(now.messagesIn(), before == null ? null : before.messagesIn(), seconds));
        if (now.messagesLost() != 0) {
            lines.add(format("lost      up to %d messages on the way to daemons", now.messagesLost()));
        }
        lines.add(lag(now.lag()));
        lines.add(objects(now.objects()));
        lines.add(format("%-24s %10s %10s %12s %10s %8s  %s", "queue", "waiting", "most", "dispatched", "dropped", "refused",
                "limit"));
        for (QuorlStatistics.Queue queue : now.queues()) {
            lines.add(format("%-24s %10d %10d %12d %10d %8d  %s",
                    queue.name().isEmpty() ? String.valueOf(queue.id()) : queue.id() + " " + queue.name(), queue.waiting(),
                    queue.mostWaiting(), queue.dispatched(), queue.dropped(), queue.refused(), limit(queue)));
        }
        if (!now.daemons().isEmpty()) lines.add("");
        for (QuorlStatistics.Daemon daemon : now.daemons()) {
            lines.add(daemon(daemon));
            lines.add("  sent      " + traffic(daemon.messagesOut(), daemon.bytesOut())
                    + format(", %s wait", bytes(daemon.waiting())));
            lines.add("  received  " + traffic(daemon.messagesIn(), daemon.bytesIn()));
            lines.add(format("  back      %d times; %d lost, %d unconfirmed, %d malformed", daemon.reconnects(), daemon.lost(),
                    daemon.unconfirmed(), daemon.malformed()));
            if (daemon.refused() != 0) {
                lines.add(format("  refused   %d times; %d subjects listened to are refused now: %s", daemon.refused(),
                        daemon.refusedPatterns(), daemon.reason()));
            }
        }
        return lines;
    }

    private static String daemon(QuorlStatistics.Daemon daemon) {
        StringBuilder line = new StringBuilder("daemon ").append(daemon.daemon());
        if (!daemon.service().isEmpty()) line.append(", service ").append(daemon.service());
        if (!daemon.network().isEmpty()) line.append(", network ").append(daemon.network());
        line.append(": ").append(daemon.phase());
        if (!daemon.server().isEmpty()) line.append(", at ").append(daemon.server());
        return line.toString();
    }

    private static String traffic(long messages, long bytes) {
        return format("%d messages, %s", messages, bytes(bytes));
    }

    private static String rate(long now, Long before, double seconds) {
        return before == null ? "" : format(", %.0f a second", (now - before) / seconds);
    }

    private static String lag(QuorlStatistics.Lag lag) {
        if (lag.samples() == 0) return "waited    nothing was timed";
        return format("waited    50 %% %s, 90 %% %s, 99 %% %s, 99.9 %% %s, longest %s, of %d timed", time(lag.p50()),
                time(lag.p90()), time(lag.p99()), time(lag.p999()), time(lag.max()), lag.samples());
    }

    private static String objects(QuorlStatistics.Objects all) {
        return format("live      %d listeners, %d vector listeners, %d timers, %d queues, %d groups, %d transports, "
                + "%d others, %d messages", all.listeners(), all.vectorListeners(), all.timers(), all.queues(),
                all.queueGroups(), all.transports(), all.others(), all.messages());
    }

    private static String limit(QuorlStatistics.Queue queue) {
        switch (queue.policy()) {
            case QuorlQueue.DISCARD_NONE:
                return "none";
            case QuorlQueue.DISCARD_FIRST:
                return format("%d, the oldest %d go", queue.maxEvents(), queue.discardAmount());
            case QuorlQueue.DISCARD_LAST:
                return format("%d, the newest %d go", queue.maxEvents(), queue.discardAmount());
            case QuorlQueue.DISCARD_NEW:
                return format("%d, the new one goes", queue.maxEvents());
            default:
                return format("%d, policy %d", queue.maxEvents(), queue.policy());
        }
    }

    static String bytes(long bytes) {
        String[] units = {"bytes", "kB", "MB", "GB", "TB"};
        double value = bytes;
        int unit = 0;
        while (value >= 1000 && unit < units.length - 1) {
            value /= 1000;
            unit++;
        }
        return unit == 0 ? bytes + " bytes" : format("%.1f %s", value, units[unit]);
    }

    static String time(Duration time) {
        double seconds = time.toNanos() / 1e9;
        if (seconds >= 1) return format("%.1f s", seconds);
        return seconds >= 1e-3 ? format("%.1f ms", seconds * 1e3) : format("%.1f us", seconds * 1e6);
    }

    private static String format(String pattern, Object... values) {
        return String.format(Locale.ROOT, pattern, values);
    }
}
