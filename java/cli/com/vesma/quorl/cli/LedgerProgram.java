package com.vesma.quorl.cli;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.PrintWriter;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.function.Consumer;

/** The program quorl-ledger, which looks into the files of ledgers that nobody has open. */
final class LedgerProgram {
    private static final String NAME = "quorl-ledger";

    private LedgerProgram() {}

    /** Beside the libraries, or on the path; null when it is nowhere. */
    static Path find() {
        List<Path> folders = new ArrayList<>();
        String library = System.getProperty("com.vesma.quorl.library", "");
        if (!library.isEmpty()) {
            // PREFIX/lib, or PREFIX/lib/x86_64-linux-gnu.
            for (Path above = Path.of(library).toAbsolutePath().getParent(); above != null && folders.size() < 3; above = above.getParent()) {
                folders.add(above.resolve("bin"));
            }
        }
        String path = System.getenv("PATH");
        if (path != null) {
            for (String folder : path.split(":")) {
                if (!folder.isEmpty()) folders.add(Path.of(folder));
            }
        }
        return folders.stream().map(folder -> folder.resolve(NAME)).filter(Files::isExecutable).findFirst().orElse(null);
    }

    /** Runs it, each of its lines going to use; its exit code. What it complains of, and its bar on a terminal, go to err. */
    static int run(List<String> arguments, PrintWriter err, Consumer<String> use) throws InterruptedException {
        Path program = find();
        if (program == null) throw new Failure("there is no program " + NAME + " beside the libraries or on the path");
        List<String> command = new ArrayList<>(List.of(program.toString()));
        command.addAll(arguments);
        boolean terminal = Screen.isTerminal(2);
        ProcessBuilder builder = new ProcessBuilder(command);
        if (terminal) builder.redirectError(ProcessBuilder.Redirect.INHERIT);
        try {
            Process process = builder.start();
            try {
                process.getOutputStream().close();
                Thread complaints = new Thread(() -> copy(process, err), "quorl-ledger-complaints");
                complaints.start();
                try (BufferedReader lines = process.inputReader(StandardCharsets.UTF_8)) {
                    for (String line = lines.readLine(); line != null; line = lines.readLine()) use.accept(line);
                }
                complaints.join();
                return process.waitFor();
            } finally {
                process.destroy();
            }
        } catch (IOException e) {
            throw new Failure(program + ": " + e.getMessage());
        }
    }

    private static void copy(Process process, PrintWriter err) {
        try (BufferedReader lines = process.errorReader(StandardCharsets.UTF_8)) {
            for (String line = lines.readLine(); line != null; line = lines.readLine()) {
                synchronized (err) {
                    // It says its own name; the user has called it by another.
                    err.println(line.replaceFirst("^" + NAME + ":", "quorl:"));
                    err.flush();
                }
            }
        } catch (IOException e) {
            // The program was ended.
        }
    }
}
