import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlListener;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlQrdTransport;
import com.vesma.quorl.QuorlQueue;
import com.vesma.quorl.QuorlTransport;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.Flow;

/** A reader that takes what it can: the rest waits in the queue, and of what is too much the oldest gives way. */
public final class Backpressure {
    public static void main(String[] arguments) throws InterruptedException {
        try (Quorl quorl = Quorl.open();
                QuorlTransport transport = new QuorlQrdTransport();
                QuorlQueue queue = new QuorlQueue("ticks");
                QuorlListener listener = new QuorlListener(queue, transport, "tick")) {
            queue.limit(QuorlQueue.DISCARD_FIRST, 5, 1);
            for (int n = 1; n <= 10; n++) {
                try (QuorlMsg message = new QuorlMsg("tick").addI32("n", n)) {
                    transport.send(message);
                }
            }
            System.out.println(queue.getCount() + " of 10 wait, since nobody has asked yet");
            Three three = new Three();
            listener.publisher().subscribe(three);
            three.done.await();
            System.out.println(queue.getCount() + " wait for somebody to ask for more");
        }
    }

    /** Asks for three messages and no more. */
    private static final class Three implements Flow.Subscriber<QuorlMsg> {
        final CountDownLatch done = new CountDownLatch(3);

        public void onSubscribe(Flow.Subscription subscription) {
            subscription.request(3);
        }

        public void onNext(QuorlMsg message) {
            System.out.println("tick " + message.getI32("n"));
            done.countDown();
        }

        public void onError(Throwable thrown) {
            thrown.printStackTrace();
        }

        public void onComplete() {}
    }
}
