import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlDispatcher;
import com.vesma.quorl.QuorlListener;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlQrdTransport;
import com.vesma.quorl.QuorlQueue;
import com.vesma.quorl.QuorlTransport;
import java.util.Map;
import java.util.TreeMap;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;

/** Handlers in an executor: two ovens are served side by side, the readings of each in their order. */
public final class Workers {
    /** What each oven's handler has seen. Each oven has an entry of its own, and one handler at a time. */
    private static final Map<String, StringBuffer> SEEN =
            new TreeMap<>(Map.of("oven1", new StringBuffer(), "oven2", new StringBuffer()));

    public static void main(String[] arguments) {
        ExecutorService workers = Executors.newCachedThreadPool();
        try (Quorl quorl = Quorl.open();
                QuorlTransport transport = new QuorlQrdTransport();
                QuorlQueue queue = new QuorlQueue("ovens");
                QuorlListener first = new QuorlListener(queue, transport, "oven1.celsius", Workers::regulate);
                QuorlListener second = new QuorlListener(queue, transport, "oven2.celsius", Workers::regulate);
                QuorlDispatcher dispatcher = QuorlDispatcher.builder(queue).name("ovens").executor(workers).start()) {
            for (int celsius = 200; celsius < 205; celsius++) {
                publish(transport, "oven1.celsius", celsius);
                publish(transport, "oven2.celsius", celsius + 20);
            }
            while (queue.getCount() > 0) {
                Thread.onSpinWait();
            }
        } finally {
            // The dispatcher was closed by now, which waits for the handlers that it has handed over.
            workers.shutdown();
        }
        SEEN.forEach((oven, readings) -> System.out.println(oven + ":" + readings));
    }

    private static void regulate(QuorlListener listener, QuorlMsg message) {
        String oven = message.getSendSubject().split("\\.")[0];
        SEEN.get(oven).append(' ').append(message.getI32("celsius"));
    }

    private static void publish(QuorlTransport transport, String subject, int celsius) {
        try (QuorlMsg message = new QuorlMsg(subject).addI32("celsius", celsius)) {
            transport.send(message);
        }
    }
}
