import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlListener;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlQrdTransport;
import com.vesma.quorl.QuorlQueue;
import com.vesma.quorl.QuorlQueueGroup;
import com.vesma.quorl.QuorlTransport;

/** Queues with priorities and limits: alarms go first, and of the readings only the latest three are kept. */
public final class Priorities {
    public static void main(String[] arguments) {
        try (Quorl quorl = Quorl.open();
                QuorlTransport transport = new QuorlQrdTransport();
                QuorlQueue readings = new QuorlQueue("readings");
                QuorlQueue alarms = new QuorlQueue("alarms");
                QuorlQueueGroup group = new QuorlQueueGroup();
                QuorlListener reading = new QuorlListener(readings, transport, "plant.reading", Priorities::show);
                QuorlListener alarm = new QuorlListener(alarms, transport, "plant.alarm", Priorities::show)) {
            readings.limit(QuorlQueue.DISCARD_FIRST, 3, 1);
            alarms.setPriority(10);
            group.add(readings);
            group.add(alarms);

            for (int n = 1; n <= 5; n++) {
                publish(transport, "plant.reading", n);
            }
            publish(transport, "plant.alarm", 1);
            publish(transport, "plant.alarm", 2);

            System.out.println(readings.getCount() + " readings and " + alarms.getCount() + " alarms wait");
            while (group.poll()) {
                continue;
            }
        }
    }

    private static void show(QuorlListener listener, QuorlMsg message) {
        System.out.println(listener.getQueue().getName() + ": " + message.getI32("number"));
    }

    private static void publish(QuorlTransport transport, String subject, int number) {
        try (QuorlMsg message = new QuorlMsg(subject)) {
            message.addI32("number", number);
            transport.send(message);
        }
    }
}
