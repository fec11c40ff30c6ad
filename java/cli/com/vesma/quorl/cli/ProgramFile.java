package com.vesma.quorl.cli;

import java.nio.file.Files;
import java.nio.file.Path;

/** Looks a program up as the system does when it starts one, so that one that is not there is told before its turn comes. */
final class ProgramFile {
    private static final String PATH_WITHOUT_SETTING = "/bin:/usr/bin";

    private ProgramFile() {}

    /** Failure when the program is not there, or may not be run. */
    static void check(String program) {
        String why = whyNotRunnable(program, System.getenv("PATH"));
        if (why != null) throw new Failure("cannot run " + Texts.quoted(program) + ": " + why);
    }

    /** Null when it can be run. path: the folders to look in, null for those of the system. */
    static String whyNotRunnable(String program, String path) {
        if (program.contains("/")) {
            Path file = Path.of(program);
            if (!Files.exists(file)) return "there is no such file";
            return isRunnable(file) ? null : whyNot(file);
        }
        Path other = null;
        for (String folder : program.isEmpty() ? new String[0] : (path == null ? PATH_WITHOUT_SETTING : path).split(":", -1)) {
            // An empty one is the current folder.
            Path file = Path.of(folder).resolve(program);
            if (isRunnable(file)) return null;
            if (other == null && Files.isRegularFile(file)) other = file;
        }
        return other == null ? "no folder of PATH has it" : other + ": " + whyNot(other);
    }

    private static boolean isRunnable(Path file) {
        return Files.isRegularFile(file) && Files.isExecutable(file);
    }

    private static String whyNot(Path file) {
        return Files.isDirectory(file) ? "it is a folder" : "it is not executable for this user";
    }
}
