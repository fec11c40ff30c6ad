import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlCmListener;
import com.vesma.quorl.QuorlCmQueueTransport;
import com.vesma.quorl.QuorlCmTransport;
import com.vesma.quorl.QuorlDispatcher;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlQrdTransport;
import com.vesma.quorl.QuorlQueue;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Duration;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.TimeUnit;
import java.util.stream.Stream;

/** Counts the words of the files in a folder with eight workers, one of which is killed with its tasks. */
public final class WordCount {
    record Task(String file) {}

    /** By file: a task that is done twice counts once. */
    private static final ConcurrentHashMap<String, Long> WORDS = new ConcurrentHashMap<>();

    public static void main(String[] arguments) throws Exception {
        Path folder = Files.createTempDirectory("words");
        folder.toFile().deleteOnExit();
        for (int i = 1; i <= 40; i++) {
            Files.writeString(folder.resolve(i + ".txt"), "the quick brown fox ".repeat(i)).toFile().deleteOnExit();
        }
        try (Quorl quorl = Quorl.open(); QuorlQrdTransport transport = new QuorlQrdTransport(); QuorlQueue queue = new QuorlQueue();
                QuorlCmTransport boss = QuorlCmTransport.builder(transport).name("boss").open(); Stream<Path> files = Files.list(folder)) {
            for (int i = 0; i < 8; i++) {
                QuorlCmQueueTransport crew = QuorlCmQueueTransport.builder(transport).name("counters").tasks(4)
                        .schedulerIntervals(Duration.ofMillis(100), Duration.ofMillis(350)).open();
                boolean killed = i == 3;
                new QuorlCmListener(queue, crew, "count", (l, task) -> count(killed ? crew : null, task.to(Task.class)));
            }
            boss.addListener("counters", "count");
            try (QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
                CompletableFuture.allOf(files.map(file -> submit(boss, file)).toArray(CompletableFuture[]::new)).get(50, TimeUnit.SECONDS);
            }
        }
        System.out.println(WORDS.size() + " files, " + WORDS.values().stream().mapToLong(Long::longValue).sum() + " words");
    }

    private static CompletableFuture<?> submit(QuorlCmTransport boss, Path file) {
        try (QuorlMsg task = QuorlMsg.of(new Task(file.toString()))) {
            return boss.sendTracked(task.setSendSubject("count"));
        }
    }

    private static void count(QuorlCmQueueTransport killed, Task task) throws Exception {
        if (killed != null) {
            killed.close(); // inside a handler that is at once: this task and three more go to the others
            return;
        }
        WORDS.put(task.file(), (long) Files.readString(Path.of(task.file())).split("\\s+").length);
    }
}
