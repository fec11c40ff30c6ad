package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsg;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.HashMap;
import java.util.List;
import java.util.Locale;
import java.util.Map;

/**
 * The members of a group as a monitor tells of them, as a table of text lines. Updated by the listener's thread, read by the
 * screen's.
 */
final class GroupTable {
    /** How long one that is gone is shown, in nanoseconds. */
    private static final long SHOWN_GONE = 10_000_000_000L;

    /** Since when a member is in its state; or was, when it was first heard in the middle of it. */
    private record Row(String label, String state, long weight, long token, long since, boolean longer) {}

    private final Map<String, Row> rows = new HashMap<>();
    private Integer active;

    synchronized void count(int now) {
        active = now;
    }

    /** What a member has done: "joined", "left", "changed", "lost". now: of a clock in nanoseconds. */
    synchronized void told(String event, QuorlMsg advisory, long now) {
        String state = event.equals("lost") ? "lost" : advisory.getString("state");
        String peer = advisory.getString("peer");
        Row before = rows.get(peer);
        boolean same = before != null && before.state.equals(state);
        // One that joins has been doing so since now; whatever else a member does when it is first heard it may have done for long.
        boolean longer = same ? before.longer : before == null && !state.equals("joining");
        rows.put(peer, new Row(FtAdvisoryText.nameOf(advisory), state, advisory.getU32("weight"), advisory.getU64("token"),
                same ? before.since : now, longer));
    }

    /**
     * In the order of their ranks, as far as a monitor knows it: those of the highest weight first. When that is more than most
     * lines, members are left out at last that are active.
     */
    synchronized List<String> lines(String group, long now, int most) {
        rows.values().removeIf(row -> isGone(row) && now - row.since > SHOWN_GONE);
        List<String> lines = new ArrayList<>();
        long members = rows.values().stream().filter(row -> !isGone(row)).count();
        lines.add(group + ": " + (active == null ? "listening" : active + " active of " + (members == 1 ? "1 member" : members + " members")));
        if (rows.isEmpty() || most < 2) return lines;
        Comparator<Row> byRank = Comparator.comparing(GroupTable::isGone).thenComparing(row -> -row.weight)
                .thenComparing(row -> !acts(row)).thenComparing(Row::label);
        List<Row> shown = new ArrayList<>(rows.values());
        shown.sort(byRank);
        int room = most - 2;
        if (shown.size() > room) {
            // One line less, for what tells of the others. Sorting keeps the ranks of those that are alike.
            shown.sort(Comparator.comparing(row -> isGone(row) ? 2 : acts(row) ? 0 : 1));
            shown = new ArrayList<>(shown.subList(0, Math.max(0, room - 1)));
            shown.sort(byRank);
        }
        int more = rows.size() - shown.size();
        if (shown.isEmpty()) {
            lines.add("  and " + more + " more");
            return lines;
        }
        int width = rows.values().stream().mapToInt(row -> row.label.length()).max().orElse(0);
        lines.add(format("  %-" + Math.max(width, 6) + "s  %-8s  %6s  %10s  %s", "MEMBER", "STATE", "WEIGHT", "FOR", "TOKEN"));
        shown.forEach(row -> lines.add(format("  %-" + Math.max(width, 6) + "s  %-8s  %6d  %10s  %s", row.label, row.state, row.weight,
                        (row.longer ? ">" : "") + time(now - row.since), row.token == 0 ? "" : Long.toUnsignedString(row.token)).stripTrailing()));
        if (more > 0) lines.add("  and " + more + " more");
        return lines;
    }

    private static boolean isGone(Row row) {
        return row.state.equals("left") || row.state.equals("lost");
    }

    private static boolean acts(Row row) {
        return row.state.equals("active") || row.state.equals("yielding");
    }

    /** 59 s, 12:34, 1:02:03. */
    static String time(long nanoseconds) {
        long seconds = Math.max(0, nanoseconds) / 1_000_000_000L;
        if (seconds < 60) return seconds + " s";
        return seconds < 3600 ? format("%d:%02d", seconds / 60, seconds % 60)
                : format("%d:%02d:%02d", seconds / 3600, seconds / 60 % 60, seconds % 60);
    }

    private static String format(String pattern, Object... values) {
        return String.format(Locale.ROOT, pattern, values);
    }
}
