import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlListener;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlQrdTransport;
import com.vesma.quorl.QuorlQueue;
import com.vesma.quorl.QuorlTransport;
import java.util.stream.Stream;

/** A listener's messages as a stream: the average of the first four readings above the freezing point. */
public final class Averages {
    public static void main(String[] arguments) {
        try (Quorl quorl = Quorl.open();
                QuorlTransport transport = new QuorlQrdTransport();
                QuorlQueue queue = new QuorlQueue("readings");
                QuorlListener listener = new QuorlListener(queue, transport, "plant.*.celsius");
                Stream<QuorlMsg> readings = listener.stream()) {
            Thread sensor = new Thread(() -> publish(transport));
            sensor.start();
            double average = readings.mapToDouble(reading -> reading.getF64("celsius"))
                    .filter(celsius -> celsius > 0)
                    .limit(4)
                    .average()
                    .getAsDouble();
            System.out.println("average " + average);
        }
    }

    private static void publish(QuorlTransport transport) {
        for (double celsius : new double[] {-2, 4, 6, -1, 8, 10}) {
            try (QuorlMsg message = new QuorlMsg("plant.roof.celsius").addF64("celsius", celsius)) {
                transport.send(message);
            }
        }
    }
}
