import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlListener;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlQrdTransport;
import com.vesma.quorl.QuorlQueue;
import com.vesma.quorl.QuorlStatistics;
import com.vesma.quorl.QuorlTransport;

/** What goes wrong is told, and everything is counted: a queue that drops says so, and the statistics say how many. */
public final class Health {
    public static void main(String[] arguments) {
        try (Quorl quorl = Quorl.open();
                QuorlTransport transport = new QuorlQrdTransport();
                QuorlQueue work = new QuorlQueue("work");
                QuorlQueue health = new QuorlQueue("health");
                QuorlListener worker = new QuorlListener(work, transport, "job", (l, job) -> {});
                QuorlListener watcher = new QuorlListener(health, transport, "_QUORL.*.queue.>", Health::tell)) {
            work.limit(QuorlQueue.DISCARD_NEW, 10, 1);
            for (int n = 1; n <= 15; n++) {
                try (QuorlMsg job = new QuorlMsg("job").addI32("n", n)) {
                    transport.send(job);
                }
            }
            while (work.poll()) {
                continue;
            }
            while (health.poll()) {
                continue;
            }
            for (QuorlStatistics.Queue queue : Quorl.statistics().queues()) {
                if (queue.name().equals("work")) {
                    System.out.println(queue.dispatched() + " dispatched, " + queue.dropped() + " dropped, at most "
                            + queue.mostWaiting() + " waited");
                }
            }
        }
    }

    private static void tell(QuorlListener listener, QuorlMsg advisory) {
        System.out.println(advisory.getSendSubject() + ": queue " + advisory.getString("name") + ", lost "
                + advisory.getU64("lost"));
    }
}
