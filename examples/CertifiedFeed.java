import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlCmDelivery;
import com.vesma.quorl.QuorlCmListener;
import com.vesma.quorl.QuorlCmTransport;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlQrdTransport;
import com.vesma.quorl.QuorlQueue;
import com.vesma.quorl.QuorlTransport;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CompletableFuture;

/** A feed whose receiver fails in the middle: when it is there again, it gets the rest, in order, nothing twice. */
public final class CertifiedFeed {
    public static void main(String[] arguments) throws Exception {
        Path folder = Files.createTempDirectory("feed");
        try (Quorl quorl = Quorl.open(); QuorlTransport transport = new QuorlQrdTransport();
                QuorlCmTransport orders = open(transport, folder, "orders")) {
            orders.addListener("billing", "orders.>");
            List<CompletableFuture<QuorlCmDelivery>> deliveries = new ArrayList<>();
            for (int n = 1; n <= 6; n++) {
                try (QuorlMsg order = new QuorlMsg("orders.new").addI32("n", n)) {
                    deliveries.add(orders.sendTracked(order));
                }
            }
            receive(transport, folder, 3);
            receive(transport, folder, 0);
            deliveries.forEach(each -> System.out.println(each.join().number() + " is confirmed by " + each.join().confirmedBy()));
        }
        Files.delete(folder.resolve("orders"));
        Files.delete(folder.resolve("billing"));
        Files.delete(folder);
    }

    private static QuorlCmTransport open(QuorlTransport transport, Path folder, String name) {
        return QuorlCmTransport.builder(transport).name(name).ledger(folder.resolve(name)).open();
    }

    /** Books orders until one of them fails; that one is not confirmed, and comes again. */
    private static void receive(QuorlTransport transport, Path folder, int failing) throws InterruptedException {
        List<Integer> booked = new ArrayList<>();
        try (QuorlQueue queue = new QuorlQueue(); QuorlCmTransport billing = open(transport, folder, "billing");
                QuorlCmListener listener = new QuorlCmListener(queue, billing, "orders.>", (l, order) -> {
                    if (order.getI32("n") == failing) {
                        throw new IllegalStateException("no paper");
                    }
                    booked.add(order.getI32("n"));
                })) {
            while (!booked.contains(6)) {
                queue.dispatch();
            }
        } catch (IllegalStateException e) {
            System.out.println(e.getMessage());
        }
        System.out.println("booked " + booked);
    }
}
