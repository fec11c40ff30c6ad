package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlListener;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlQueue;
import com.vesma.quorl.QuorlTransport;
import java.time.Duration;
import java.util.Arrays;

/** Finds out whether a daemon lets this user send and listen on a bus, by doing both. */
final class PermissionProbe {
    /** The library tells of refusals once a second; a second one may follow the first. */
    private static final long BOTH_NANOS = 1_500_000_000L;

    /** What the daemon says of a subject that it refuses stands between quotation marks. */
    private static final char QUOTE = '"';

    private final String subject;
    private boolean came;
    private boolean publishRefused;
    private boolean subscribeRefused;
    private String words = "";

    private PermissionProbe(String subject) {
        this.subject = subject;
    }

    /** Sends a message to itself; the subject is one that nobody else uses. */
    @SuppressWarnings("try")
    static PermissionProbe of(QuorlTransport through, String subject, Duration patience) throws InterruptedException {
        PermissionProbe probe = new PermissionProbe(subject);
        try (DaemonWatch watch = new DaemonWatch(probe::told);
                QuorlQueue queue = new QuorlQueue();
                QuorlListener listener = new QuorlListener(queue, through, subject, (l, m) -> probe.came());
                QuorlMsg message = new QuorlMsg(subject)) {
            through.send(message);
            long end = System.nanoTime() + patience.toNanos();
            while (!probe.decided() && System.nanoTime() < end) {
                queue.dispatch(Duration.ofMillis(50));
                if (probe.refused()) end = Math.min(end, System.nanoTime() + BOTH_NANOS);
                if (probe.refused()) probe.awaitOther(end);
            }
        }
        return probe;
    }

    private synchronized void came() {
        came = true;
    }

    private synchronized void told(QuorlMsg advisory) {
        if (!advisory.getSendSubject().endsWith(".daemon.refused")) return;
        if (advisory.has("subject") && advisory.getString("subject").equals(subject)) publishRefused = true;
        if (advisory.has("patterns") && Arrays.asList(advisory.getStringArray("patterns")).contains(subject)) {
            subscribeRefused = true;
        }
        words = advisory.getString("reason");
        notifyAll();
    }

    private synchronized boolean decided() {
        return came || (publishRefused && subscribeRefused);
    }

    private synchronized boolean refused() {
        return publishRefused || subscribeRefused;
    }

    /** A message that is refused tells nothing of listening, nor the other way round. */
    private synchronized void awaitOther(long end) throws InterruptedException {
        for (long left = end - System.nanoTime(); !decided() && left > 0; left = end - System.nanoTime()) {
            wait(left / 1_000_000 + 1);
        }
    }

    /** Whether the message came back. */
    synchronized boolean worked() {
        return came;
    }

    /** What is refused, in the words of the server's configuration; null when nothing is. */
    synchronized String missing() {
        if (!refused()) return null;
        return publishRefused ? subscribeRefused ? "publish and subscribe" : "publish" : "subscribe";
    }

    /** The daemon's last words. */
    synchronized String words() {
        return words;
    }

    /** The permissions that a user of the bus needs, as the server's configuration has them. */
    static String permissions(String words) {
        int open = words.indexOf(QUOTE, Math.max(words.indexOf("Violation"), 0));
        int close = words.indexOf(QUOTE, open + 1);
        String all = "quorl.>";
        if (open >= 0 && close > open) {
            // quorl.NETWORK.SERVICE.SUBJECT, whose first elements have no point inside
            String[] elements = words.substring(open + 1, close).split("\\.", 4);
            if (elements.length == 4) all = elements[0] + "." + elements[1] + "." + elements[2] + ".>";
        }
        return "permissions: { publish: \"" + all + "\", subscribe: \"" + all + "\" }";
    }
}
