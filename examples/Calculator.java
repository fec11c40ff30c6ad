import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlDispatcher;
import com.vesma.quorl.QuorlListener;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlQrdTransport;
import com.vesma.quorl.QuorlQueue;
import com.vesma.quorl.QuorlTransport;
import java.time.Duration;

/** Request and reply: a service adds two numbers, a client asks it, and asks one that does not exist. */
public final class Calculator {
    public static void main(String[] arguments) throws InterruptedException {
        try (Quorl quorl = Quorl.open();
                QuorlTransport transport = new QuorlQrdTransport();
                QuorlQueue queue = new QuorlQueue();
                QuorlDispatcher dispatcher = new QuorlDispatcher(queue);
                QuorlListener service = new QuorlListener(queue, transport, "calculator.add", Calculator::answer)) {
            System.out.println("2 + 40 = " + ask(transport, "calculator.add", 2, 40));
            System.out.println("2 * 40 = " + ask(transport, "calculator.multiply", 2, 40));
        }
    }

    private static void answer(QuorlListener service, QuorlMsg request) {
        try (QuorlMsg reply = new QuorlMsg()) {
            reply.addI32("sum", request.getI32("a") + request.getI32("b"));
            service.getTransport().reply(reply, request);
        }
    }

    private static String ask(QuorlTransport transport, String subject, int a, int b) throws InterruptedException {
        try (QuorlMsg request = new QuorlMsg(subject)) {
            request.addI32("a", a);
            request.addI32("b", b);
            try (QuorlMsg reply = transport.request(request, Duration.ofMillis(200))) {
                return reply == null ? "no answer" : Integer.toString(reply.getI32("sum"));
            }
        }
    }
}
