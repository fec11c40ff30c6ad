import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlDispatcher;
import com.vesma.quorl.QuorlListener;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlQrdTransport;
import com.vesma.quorl.QuorlQueue;
import com.vesma.quorl.QuorlTimeoutException;
import com.vesma.quorl.QuorlTransport;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CompletableFuture;

/** Requests that do not wait: five are under way at once, and one that nobody answers fails by itself. */
public final class Questions {
    public static void main(String[] arguments) {
        try (Quorl quorl = Quorl.open();
                QuorlTransport transport = new QuorlQrdTransport();
                QuorlQueue queue = new QuorlQueue("square");
                QuorlListener server = new QuorlListener(queue, transport, "square", (l, m) -> square(transport, m));
                QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
            List<CompletableFuture<String>> answers = new ArrayList<>();
            for (int n = 1; n <= 5; n++) {
                try (QuorlMsg question = new QuorlMsg("square").addI32("n", n)) {
                    answers.add(transport.requestAsync(question, Duration.ofSeconds(10)).thenApply(Questions::read));
                }
            }
            answers.forEach(answer -> System.out.println(answer.join()));

            try (QuorlMsg question = new QuorlMsg("cube").addI32("n", 3)) {
                String text = transport.requestAsync(question, Duration.ofMillis(50))
                        .thenApply(Questions::read)
                        .exceptionally(e -> e.getCause() instanceof QuorlTimeoutException ? "nobody cubes" : e.toString())
                        .join();
                System.out.println(text);
            }
        }
    }

    /** Whoever takes the answer closes it. */
    private static String read(QuorlMsg answer) {
        try (answer) {
            return answer.getI32("n") + " squared is " + answer.getI32("square");
        }
    }

    private static void square(QuorlTransport transport, QuorlMsg question) {
        int n = question.getI32("n");
        try (QuorlMsg answer = new QuorlMsg().addI32("n", n).addI32("square", n * n)) {
            transport.reply(answer, question);
        }
    }
}
