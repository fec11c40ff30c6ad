package com.vesma.quorl.cli;

import java.io.IOException;
import java.io.PrintWriter;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Locale;
import java.util.concurrent.TimeUnit;

/** A block of lines on a terminal that is redrawn in place with ANSI sequences. */
final class Screen implements AutoCloseable {
    private static final String UP = "\u001b[%dA";
    private static final String ERASE_TO_END_OF_LINE = "\u001b[K";
    private static final String ERASE_BELOW = "\u001b[J";
    // Without wrapping a long line is cut at the edge, so a line of text is a line of the screen at any width.
    private static final String WRAP_OFF = "\u001b[?7l";
    private static final String WRAP_ON = "\u001b[?7h";
    private static final String CURSOR_OFF = "\u001b[?25l";
    private static final String CURSOR_ON = "\u001b[?25h";

    private final PrintWriter out;
    private int drawn;

    Screen(PrintWriter out) {
        this.out = out;
        out.print(WRAP_OFF + CURSOR_OFF);
        out.flush();
    }

    void draw(List<String> lines) {
        StringBuilder frame = new StringBuilder();
        if (drawn > 0) frame.append(String.format(Locale.ROOT, UP, drawn));
        frame.append('\r');
        for (String line : lines) frame.append(line).append(ERASE_TO_END_OF_LINE).append('\n');
        frame.append(ERASE_BELOW);
        drawn = lines.size();
        out.print(frame);
        out.flush();
    }

    @Override
    public void close() {
        out.print(WRAP_ON + CURSOR_ON);
        out.flush();
    }

    /** Whether this process's standard output is a terminal that understands the sequences. */
    static boolean isTerminal() {
        return isTerminal(1);
    }

    /** Whether a file of this process, 1 for its output and 2 for its errors, is one. */
    static boolean isTerminal(int file) {
        String terminal = System.getenv("TERM");
        if (terminal == null || terminal.equals("dumb")) return false;
        try {
            // System.console() also asks about standard input, which may be a pipe here.
            Path target = Files.readSymbolicLink(Path.of("/proc/self/fd/" + file));
            return target.startsWith("/dev/pts") || target.toString().startsWith("/dev/tty")
                    || target.equals(Path.of("/dev/console"));
        } catch (IOException e) {
            return false;
        }
    }

    /** The terminal's height in lines, 24 when it does not say. */
    static int height() {
        try {
            Process stty = new ProcessBuilder("stty", "size").redirectInput(Path.of("/dev/tty").toFile())
                    .redirectError(ProcessBuilder.Redirect.DISCARD).start();
            String size = new String(stty.getInputStream().readAllBytes(), StandardCharsets.US_ASCII);
            if (stty.waitFor(1, TimeUnit.SECONDS) && stty.exitValue() == 0) {
                int lines = Integer.parseInt(size.strip().split(" ")[0]);
                if (lines > 0) return lines;
            }
        } catch (IOException | NumberFormatException e) {
            return 24;
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
        return 24;
    }
}
