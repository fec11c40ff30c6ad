import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlDispatcher;
import com.vesma.quorl.QuorlListener;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlQrdTransport;
import com.vesma.quorl.QuorlQueue;

/** Our library: a message is created, filled, sent and closed; a dispatcher's thread runs the listener. */
public final class QuorlSide implements Side {
    private static final String SUBJECT = "bench.stream";

    @Override
    public double messagesPerSecond(int size, double seconds) throws Exception {
        Stream stream = new Stream(size);
        try (Quorl library = Quorl.open();
                QuorlQrdTransport transport = new QuorlQrdTransport();
                QuorlQueue queue = new QuorlQueue();
                QuorlListener listener = new QuorlListener(queue, transport, SUBJECT, (self, message) -> {
                    byte[] bytes = message.getOpaque("payload");
                    stream.on(bytes, bytes.length);
                });
                QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
            return stream.publish(seconds, bytes -> {
                try (QuorlMsg message = new QuorlMsg(SUBJECT)) {
                    message.addOpaque("payload", bytes);
                    transport.send(message);
                }
            });
        }
    }
}
