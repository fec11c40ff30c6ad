package com.vesma.quorl.internal.setup;

import java.io.IOException;
import java.io.InputStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.ArrayList;
import java.util.List;
import java.util.Locale;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * Finds and loads the shared objects.
 *
 * <p>The places, in order: the file or directory that the system property {@code com.vesma.quorl.library} names, and
 * then nothing else; the directories of {@code java.library.path}; the copy inside the jar, extracted to a directory
 * that only this user can enter (below {@code com.vesma.quorl.tmpdir}, else {@code java.io.tmpdir}) and deleted as soon
 * as it is loaded.
 */
public final class NativeFiles {
    private static final String BRIDGE = "libquorlnativesd.so";

    /** Each is found beside the one that needs it, so all are extracted together; the bridge is loaded. */
    private static final String[] FILES = {
        "libquorl.so", "libquorlsd.so", "libquorlcm.so", "libquorlcmq.so", "libquorlft.so", BRIDGE
    };

    /** What the dynamic linker says: which file lacks the version, the version, and the file that wants it. */
    private static final Pattern MISSING_RELEASE =
            Pattern.compile("(/\\S+): version [`']QUORL_PRIVATE_([^']+)' not found \\(required by ([^)]+)\\)");

    /** As it stands in the table of names of a shared object. */
    private static final Pattern RELEASE = Pattern.compile("QUORL_PRIVATE_([0-9A-Za-z.+-]+)\0");

    private NativeFiles() {}

    /** Loads the bridge, and the libraries with it; {@link UnsatisfiedLinkError} says which places were tried. */
    public static void load() {
        List<String> tried = new ArrayList<>();
        String named = System.getProperty("com.vesma.quorl.library");
        if (named != null && !named.isEmpty()) {
            Path path = Path.of(named).toAbsolutePath();
            if (!loadFile(Files.isDirectory(path) ? path.resolve(BRIDGE) : path, tried)) {
                throw failure(tried, "the system property com.vesma.quorl.library names this place");
            }
            return;
        }
        for (String directory : System.getProperty("java.library.path", "").split(":")) {
            if (!directory.isEmpty() && loadFile(Path.of(directory).toAbsolutePath().resolve(BRIDGE), tried)) {
                return;
            }
        }
        if (!loadFromJar(tried)) {
            throw failure(tried, "set the system property com.vesma.quorl.library to the file or its directory");
        }
    }

    private static UnsatisfiedLinkError failure(List<String> tried, String advice) {
        return new UnsatisfiedLinkError("no usable " + BRIDGE + " for " + platform() + "; " + advice
                + ". Places tried:\n  " + String.join("\n  ", tried));
    }

    private static boolean loadFile(Path file, List<String> tried) {
        if (!Files.exists(file)) {
            tried.add(file + ": no such file");
            return false;
        }
        try {
            System.load(file.toString());
            return true;
        } catch (UnsatisfiedLinkError e) {
            tried.add(file + ": " + e.getMessage() + advice(file, e.getMessage()));
            return false;
        }
    }

    /** The dynamic linker says no more than that it may not map the file when the directory forbids execution. */
    private static String advice(Path file, String message) {
        if (message != null && message.contains("failed to map segment")) {
            return " (the file system of " + file.getParent() + " forbids execution, \"noexec\": set the system property"
                    + " com.vesma.quorl.tmpdir to a directory that allows it)";
        }
        return mixture(message);
    }

    /**
     * The shared objects share a version that names their release; the dynamic linker refuses a mixture, and names the one
     * that is missing.
     */
    private static String mixture(String message) {
        Matcher missing = MISSING_RELEASE.matcher(message == null ? "" : message);
        if (!missing.find()) {
            return "";
        }
        Path core = Path.of(missing.group(1));
        return " (shared objects of two releases: " + Path.of(missing.group(3)).getFileName() + " is of " + missing.group(2)
                + ", " + core + " is of " + releaseOf(core) + ": install all of one release)";
    }

    private static String releaseOf(Path core) {
        try {
            Matcher release = RELEASE.matcher(Files.readString(core, StandardCharsets.ISO_8859_1));
            return release.find() ? release.group(1) : "one without a name";
        } catch (IOException e) {
            return "another";
        }
    }

    private static boolean loadFromJar(List<String> tried) {
        String inJar = "/native/" + platform() + "/";
        if (NativeFiles.class.getResource(inJar + BRIDGE) == null) {
            tried.add("the jar: it has no " + inJar + BRIDGE);
            return false;
        }
        Path parent = Path.of(System.getProperty("com.vesma.quorl.tmpdir", System.getProperty("java.io.tmpdir", "/tmp")));
        Path directory = null;
        try {
            directory = Files.createTempDirectory(parent, "quorl-",
                    PosixFilePermissions.asFileAttribute(PosixFilePermissions.fromString("rwx------")));
            for (String name : FILES) {
                try (InputStream in = NativeFiles.class.getResourceAsStream(inJar + name)) {
                    if (in == null) {
                        tried.add("the jar: it has no " + inJar + name);
                        return false;
                    }
                    Files.copy(in, directory.resolve(name));
                }
            }
            return loadFile(directory.resolve(BRIDGE), tried);
        } catch (IOException e) {
            tried.add("a copy from the jar in " + parent + ": " + e);
            return false;
        } finally {
            remove(directory);
        }
    }

    /** Loaded files stay mapped, so their names can go at once; a process that is killed then leaves nothing behind. */
    private static void remove(Path directory) {
        if (directory == null) {
            return;
        }
        try {
            for (String name : FILES) {
                Files.deleteIfExists(directory.resolve(name));
            }
            Files.delete(directory);
        } catch (IOException e) {
            System.getLogger("com.vesma.quorl").log(System.Logger.Level.WARNING, "could not remove " + directory, e);
        }
    }

    /** As the build names it: the system, a hyphen, the processor as uname says it. */
    private static String platform() {
        String system = System.getProperty("os.name", "").toLowerCase(Locale.ROOT);
        String processor = System.getProperty("os.arch", "").toLowerCase(Locale.ROOT);
        return system + "-" + (processor.equals("amd64") ? "x86_64" : processor);
    }
}
