package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.File;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CountDownLatch;
import java.util.stream.Stream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Where the shared objects are found, and what is said when they are not. */
class LibraryTest {
    private static final Path LIBRARIES = Path.of(System.getProperty("com.vesma.quorl.library"));
    private static final Path JAR = Path.of(System.getProperty("quorl.jar"));

    @TempDir
    Path directory;

    private ChildProcess idle(String... options) throws Exception {
        return ChildProcess.run(ExitTest.Idle.class, List.of(options));
    }

    private static void assertLoaded(ChildProcess child) {
        assertEquals(0, child.exit, child.output);
        assertEquals(Quorl.getVersion(), child.output.trim());
    }

    private static void assertSays(ChildProcess child, String... parts) {
        assertEquals(1, child.exit, child.output);
        assertTrue(child.output.contains("UnsatisfiedLinkError"), child.output);
        for (String part : parts) {
            assertTrue(child.output.contains(part), part + " is not in " + child.output);
        }
    }

    /** The class path with the jar in place of the build's classes. */
    private static String classPathWithJar() {
        List<String> path = new ArrayList<>(List.of(JAR.toString()));
        for (String each : System.getProperty("java.class.path").split(File.pathSeparator)) {
            if (!Files.exists(Path.of(each, "module-info.class"))) {
                path.add(each);
            }
        }
        return String.join(File.pathSeparator, path);
    }

    @Test
    void thePropertyNamesAFileOrADirectory() throws Exception {
        assertLoaded(idle("-Dcom.vesma.quorl.library=" + LIBRARIES));
        assertLoaded(idle("-Dcom.vesma.quorl.library=" + LIBRARIES.resolve("libquorlnativesd.so")));
    }

    @Test
    void aPropertyThatLeadsNowhereIsTheEnd() throws Exception {
        assertSays(idle("-Dcom.vesma.quorl.library=" + directory, "-Djava.library.path=" + LIBRARIES), "no such file",
                directory.toString(), "com.vesma.quorl.library");
    }

    @Test
    void thePathOfTheMachineIsSearched() throws Exception {
        assertLoaded(idle("-Djava.library.path=" + directory + File.pathSeparator + LIBRARIES));
    }

    @Test
    void everyPlaceTriedIsNamed() throws Exception {
        Files.writeString(directory.resolve("libquorlnativesd.so"), "this is no library");
        assertSays(idle("-Djava.library.path=" + directory + File.pathSeparator + directory.resolve("none")),
                directory.resolve("libquorlnativesd.so").toString(), directory.resolve("none").toString(), "the jar",
                "com.vesma.quorl.library");
    }

    @Test
    void sharedObjectsOfTwoReleasesAreNamedWithBoth() throws Exception {
        try (Stream<Path> files = Files.list(LIBRARIES)) {
            for (Path file : files.filter(each -> each.toString().endsWith(".so")).toList()) {
                Files.copy(file, directory.resolve(file.getFileName()));
            }
        }
        Files.copy(Path.of(System.getProperty("quorl.other.release")), directory.resolve("libquorlft.so"),
                StandardCopyOption.REPLACE_EXISTING);
        assertSays(idle("-Dcom.vesma.quorl.library=" + directory), "libquorlft.so is of 0.0.9",
                directory.resolve("libquorl.so") + " is of " + Quorl.getVersion(), "install all of one release");
    }

    @Test
    void theJarHoldsTheSharedObjects() throws Exception {
        assertLoaded(ChildProcess.run(ExitTest.Idle.class, List.of("-cp", classPathWithJar(), "-Djava.library.path=" + directory,
                "-Dcom.vesma.quorl.tmpdir=" + directory)));
        assertTrue(isEmpty(directory), "the copies were not removed");
    }

    @Test
    void aJarWithoutARoomForItsCopiesSaysSo() throws Exception {
        Path none = directory.resolve("none");
        assertSays(ChildProcess.run(ExitTest.Idle.class, List.of("-cp", classPathWithJar(), "-Djava.library.path=" + directory,
                "-Dcom.vesma.quorl.tmpdir=" + none)), none.toString());
    }

    @Test
    void theJarIsAModule() throws Exception {
        ChildProcess child = ChildProcess.run(ExitTest.Idle.class, List.of("-p", JAR.toString(), "--add-modules",
                "com.vesma.quorl", "--patch-module", "com.vesma.quorl=" + testClasses(), "-Djava.library.path=" + directory,
                "--add-opens", "com.vesma.quorl/com.vesma.quorl=ALL-UNNAMED", "-m",
                "com.vesma.quorl/" + ExitTest.Idle.class.getName()));
        assertLoaded(child);
    }

    private static String testClasses() throws Exception {
        return Path.of(ExitTest.class.getProtectionDomain().getCodeSource().getLocation().toURI()).toString();
    }

    private static boolean isEmpty(Path path) throws Exception {
        try (Stream<Path> entries = Files.list(path)) {
            return entries.findAny().isEmpty();
        }
    }

    /** Threads that meet the library for the first time, each by another class. */
    static final class Together {
        public static void main(String[] arguments) throws Exception {
            List<Runnable> ways = List.of(() -> new QuorlMsg().close(), Quorl::isOpen, Quorl::getVersion,
                    () -> refused(QuorlQueue::new), () -> refused(QuorlQrdTransport::new), () -> refused(QuorlQueueGroup::new),
                    QuorlQueue::getDefault, () -> QuorlException.text(3));
            CountDownLatch start = new CountDownLatch(1);
            List<OpenLibrary.Worker> workers = new ArrayList<>();
            for (Runnable way : ways) {
                workers.add(new OpenLibrary.Worker(() -> {
                    start.await();
                    way.run();
                }));
            }
            start.countDown();
            for (OpenLibrary.Worker worker : workers) {
                worker.join();
            }
        }

        private static void refused(Runnable way) {
            try {
                way.run();
                throw new AssertionError("not refused");
            } catch (QuorlException e) {
                // The library is not open.
            }
        }
    }

    @Test
    void threadsMayMeetItTogether() throws Exception {
        for (int i = 0; i < 5; i++) {
            ChildProcess child = ChildProcess.run(Together.class, ChildProcess.withLibrary());
            assertEquals(0, child.exit, child.output);
            assertFalse(child.output.contains("WARNING"), child.output);
        }
    }
}
