package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;

import com.sun.management.HotSpotDiagnosticMXBean;
import java.lang.management.ManagementFactory;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.Random;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** No copy of a password is left in the machine's heap, not even in what waits to be collected. */
class PasswordsTest {
    @TempDir
    Path folder;

    /** The child: gives passwords away in every way, forgets them, and looks for them in an image of its heap. */
    static final class Program {
        /** Kept in the heap, and so to be found: shows that the search finds something. */
        private static byte[] control;

        public static void main(String[] arguments) throws Exception {
            long[] seeds = {11, 12, 13, 14, 15};
            char[][] own = new char[seeds.length][];
            for (int i = 0; i < seeds.length; i++) {
                own[i] = password(seeds[i]);
            }
            try (QuorlSdContext context = new QuorlSdContext()) {
                context.setUserNameWithPassword("ada", own[0]);
                refused(() -> context.setUserCertWithKey("none".getBytes(StandardCharsets.UTF_8), own[1]));
                refused(() -> context.setUserCertWithKeyBin(new byte[7], own[2]));
                own[3][own[3].length - 1] = '\ud83d';
                refused(() -> context.setUserNameWithPassword("ada", own[3]));
                own[4][own[4].length - 1] = '\0';
                refused(() -> context.setUserNameWithPassword("ada", own[4]));
            }
            for (char[] each : own) {
                Arrays.fill(each, ' ');
            }
            control = utf8(password(99));
            Path image = Path.of(arguments[0]);
            ManagementFactory.getPlatformMXBean(HotSpotDiagnosticMXBean.class).dumpHeap(image.toString(), false);
            try (FileChannel file = FileChannel.open(image)) {
                ByteBuffer bytes = file.map(FileChannel.MapMode.READ_ONLY, 0, file.size());
                System.out.println("control " + contains(bytes, control));
                for (long seed : seeds) {
                    // What was copied of a longer one has its beginning.
                    char[] beginning = Arrays.copyOf(password(seed), 12);
                    byte[] wide = new byte[24];
                    ByteBuffer.wrap(wide).asCharBuffer().put(beginning);
                    System.out.println(seed + " " + (contains(bytes, utf8(beginning)) || contains(bytes, wide)));
                }
            }
        }

        private static void refused(Runnable call) {
            try {
                call.run();
            } catch (QuorlException | IllegalArgumentException e) {
                return;
            }
            throw new AssertionError("nothing was refused");
        }

        /** Always the same for a seed; most of its characters take two bytes or three. */
        private static char[] password(long seed) {
            Random random = new Random(seed);
            char[] password = new char[60];
            for (int i = 0; i < password.length; i++) {
                password[i] = (char) (0x100 + random.nextInt(0x2000));
            }
            return password;
        }

        private static byte[] utf8(char[] text) {
            return new String(text).getBytes(StandardCharsets.UTF_8);
        }

        private static boolean contains(ByteBuffer where, byte[] what) {
            for (int i = 0; i <= where.limit() - what.length; i++) {
                int same = 0;
                while (same < what.length && where.get(i + same) == what[same]) {
                    same++;
                }
                if (same == what.length) {
                    return true;
                }
            }
            return false;
        }
    }

    @Test
    void noCopyIsLeft() throws Exception {
        Path image = folder.resolve("heap.hprof");
        ChildProcess child = ChildProcess.run(Program.class, ChildProcess.withLibrary(), image.toString());
        assertEquals(0, child.exit, child.output);
        Files.deleteIfExists(image);
        assertEquals("control true\n11 false\n12 false\n13 false\n14 false\n15 false", child.output.trim(), child.output);
    }
}
