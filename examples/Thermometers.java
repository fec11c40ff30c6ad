import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlListener;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlQrdTransport;
import com.vesma.quorl.QuorlQueue;
import com.vesma.quorl.QuorlTransport;

/** Publish and subscribe: one listener on a wildcard subject hears two thermometers. */
public final class Thermometers {
    public static void main(String[] arguments) {
        try (Quorl quorl = Quorl.open();
                QuorlTransport transport = new QuorlQrdTransport();
                QuorlQueue queue = new QuorlQueue();
                QuorlListener listener = new QuorlListener(queue, transport, "plant.*.temp", Thermometers::show)) {
            publish(transport, "plant.line3.temp", 71.5);
            publish(transport, "plant.line4.temp", 68.0);
            publish(transport, "plant.line4.pressure", 1.0); // nobody listens to this

            int heard = 0;
            while (queue.poll()) {
                heard++;
            }
            System.out.println(heard + " messages");
        }
    }

    private static void show(QuorlListener listener, QuorlMsg message) {
        System.out.println(message.getSendSubject() + " " + message.getF64("celsius"));
    }

    private static void publish(QuorlTransport transport, String subject, double celsius) {
        try (QuorlMsg message = new QuorlMsg(subject)) {
            message.addF64("celsius", celsius);
            transport.send(message);
        }
    }
}
