package com.vesma.quorl.cli;

import java.io.FileOutputStream;
import java.io.IOException;
import java.io.UncheckedIOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;

/** Lines "what number milliseconds" at the end of a file; what was added is there when the process is not. */
final class DemoNotes implements AutoCloseable {
    /** An interrupt does not close it, as it does a channel. */
    private final FileOutputStream file;

    DemoNotes(Path path) throws IOException {
        file = new FileOutputStream(path.toFile(), true);
    }

    synchronized void add(String what, long number) {
        try {
            file.write((what + " " + number + " " + System.currentTimeMillis() + "\n").getBytes(StandardCharsets.UTF_8));
        } catch (IOException e) {
            throw new UncheckedIOException(e);
        }
    }

    @Override
    public void close() throws IOException {
        file.close();
    }
}
