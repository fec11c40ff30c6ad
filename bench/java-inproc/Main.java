import java.io.File;
import java.io.IOException;
import java.net.URL;
import java.net.URLClassLoader;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Locale;
import java.util.Map;

/**
 * The Java case: lets the contenders run in turn in one virtual machine and prints the medians.
 *
 * <p>Arguments: for each contender, ours first, its name, its class and its class path.
 */
public final class Main {
    private static final double SECONDS = setting("BENCH_SECONDS", 0.6);
    private static final double WARM_UP = setting("BENCH_WARM_UP", 3);
    private static final int ROUNDS = (int) Math.max(5, setting("BENCH_ROUNDS", 5));
    private static final double QUIET = 0.2;
    private static final int TRIES = 3;

    private static double worst;

    private Main() {}

    public static void main(String[] arguments) throws Exception {
        Map<String, Side> sides = new LinkedHashMap<>();
        for (int i = 0; i < arguments.length; i += 3) {
            List<URL> path = new ArrayList<>();
            for (String entry : arguments[i + 2].split(File.pathSeparator)) {
                path.add(Path.of(entry).toUri().toURL());
            }
            ClassLoader loader = new URLClassLoader(path.toArray(new URL[0]), Main.class.getClassLoader());
            sides.put(arguments[i], (Side) loader.loadClass(arguments[i + 1]).getDeclaredConstructor().newInstance());
        }
        for (int size : new int[] {16, 256, 4096}) {
            compare(size, new ArrayList<>(sides.keySet()), new ArrayList<>(sides.values()));
        }
        System.err.printf(Locale.ROOT, "java-inproc: other processes took up to %.0f %% of the machine during a run%n",
                worst * 100);
        System.exit(0);
    }

    private static void compare(int size, List<String> names, List<Side> sides) throws Exception {
        for (Side side : sides) {
            side.messagesPerSecond(size, WARM_UP / 2);
            side.messagesPerSecond(size, WARM_UP / 2);
        }
        double[][] rates = new double[sides.size()][ROUNDS];
        for (int round = 0; round < ROUNDS; ++round) {
            for (int i = 0; i < sides.size(); ++i) {
                int who = round % 2 == 0 ? i : sides.size() - 1 - i;
                rates[who][round] = leastDisturbed(sides.get(who), size);
            }
        }
        double ours = median(rates[0]);
        for (int peer = 1; peer < sides.size(); ++peer) {
            double theirs = median(rates[peer]);
            System.out.printf(Locale.ROOT, "java-inproc\tstream.%dB.msgs_per_s\t%.6g\t%s\t%.6g\t%.6g%n", size, ours,
                    names.get(peer), theirs, ours / theirs);
        }
    }

    private static double leastDisturbed(Side side, int size) throws Exception {
        double best = 0;
        double disturbed = Double.MAX_VALUE;
        for (int i = 0; i < TRIES && disturbed > QUIET; ++i) {
            long start = System.nanoTime();
            double before = foreignSeconds();
            double rate = side.messagesPerSecond(size, SECONDS);
            double elapsed = (System.nanoTime() - start) / 1e9;
            double share = (foreignSeconds() - before) / (elapsed * Runtime.getRuntime().availableProcessors());
            if (share < disturbed) {
                best = rate;
                disturbed = share;
            }
        }
        worst = Math.max(worst, disturbed);
        return best;
    }

    /** Processor time of all processes but this one; both files count in hundredths of a second. */
    private static double foreignSeconds() throws IOException {
        String[] all = Files.readAllLines(Path.of("/proc/stat")).get(0).trim().split(" +");
        double busy = 0;
        for (int i : new int[] {1, 2, 3, 6, 7, 8}) {
            busy += Double.parseDouble(all[i]);
        }
        String own = Files.readString(Path.of("/proc/self/stat"));
        String[] words = own.substring(own.lastIndexOf(')') + 2).split(" ");
        return (busy - Double.parseDouble(words[11]) - Double.parseDouble(words[12])) / 100;
    }

    private static double median(double[] values) {
        double[] sorted = values.clone();
        Arrays.sort(sorted);
        int middle = sorted.length / 2;
        return sorted.length % 2 != 0 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
    }

    private static double setting(String name, double otherwise) {
        String value = System.getenv(name);
        return value == null || value.isEmpty() ? otherwise : Double.parseDouble(value);
    }
}
