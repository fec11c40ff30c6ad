import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlDispatcher;
import com.vesma.quorl.QuorlFtMember;
import com.vesma.quorl.QuorlQrdTransport;
import com.vesma.quorl.QuorlQueue;
import com.vesma.quorl.QuorlTransport;
import java.time.Duration;

/** An archive that two programs may write, one at a time: the standby takes over, and what the first one still tries is refused. */
public final class Standby {
    /** What both write to. It keeps the highest token that it has seen, and takes nothing that comes with a lower one. */
    private static final class Archive {
        private long highest;

        synchronized void write(String who, long token, String what) {
            if (Long.compareUnsigned(token, highest) < 0) {
                System.out.println(what + " of the " + who + " is refused: its token is not good any more");
                return;
            }
            highest = token;
            System.out.println(what + " is written by the " + who);
        }
    }

    private static final Duration HEARTBEAT = Duration.ofMillis(100);
    private static final Duration PREPARATION = Duration.ofMillis(300);
    private static final Duration ACTIVATION = Duration.ofMillis(600);

    private static QuorlFtMember join(QuorlQueue queue, QuorlTransport transport, String who, int weight) {
        return QuorlFtMember.builder(queue, transport, "plant.archive").weight(weight).intervals(HEARTBEAT, PREPARATION, ACTIVATION)
                .onActivate(member -> System.out.println("the " + who + " is active"))
                .onDeactivate(member -> System.out.println("the " + who + " stops")).join();
    }

    public static void main(String[] arguments) throws InterruptedException {
        Archive archive = new Archive();
        Duration limit = Duration.ofSeconds(30);
        // Two programs in one, for brevity; each with its own queue, as a program of its own would have.
        try (Quorl quorl = Quorl.open(); QuorlTransport transport = new QuorlQrdTransport();
                QuorlQueue one = new QuorlQueue(); QuorlDispatcher ones = new QuorlDispatcher(one);
                QuorlQueue other = new QuorlQueue(); QuorlDispatcher others = new QuorlDispatcher(other)) {
            QuorlFtMember first = join(one, transport, "first", 2);
            first.awaitActive(limit);
            QuorlFtMember standby = join(other, transport, "standby", 1);
            long token = first.getToken();
            archive.write("first", token, "reading 1");
            archive.write("first", token, "reading 2");
            first.close();
            standby.awaitActive(limit);
            archive.write("standby", standby.getToken(), "reading 3");
            archive.write("first", token, "reading 4");
        }
    }
}
