package com.vesma.quorl.cli;

import java.io.IOException;
import java.io.InputStream;
import java.io.InterruptedIOException;
import java.util.Arrays;
import java.util.concurrent.SynchronousQueue;

/**
 * An input that a thread of its own reads, so that whoever waits for it can be interrupted: the system's read of standard
 * input cannot be. The thread ends with the input, or with the process.
 */
final class InterruptibleInput extends InputStream {
    private static final int PIECE = 64 * 1024;

    /** What was read; an empty piece is the end. failure is not null when reading failed. */
    private record Piece(byte[] bytes, IOException failure) {}

    private final InputStream in;
    private final SynchronousQueue<Piece> pieces = new SynchronousQueue<>();
    private Thread reader;
    private byte[] piece = new byte[0];
    private int at;
    private boolean ended;

    InterruptibleInput(InputStream in) {
        this.in = in;
    }

    @Override
    public int read() throws IOException {
        byte[] one = new byte[1];
        return read(one, 0, 1) < 0 ? -1 : one[0] & 0xFF;
    }

    @Override
    public int read(byte[] to, int offset, int length) throws IOException {
        if (length == 0) return 0;
        if (at == piece.length && !ended) fetch();
        if (ended) return -1;
        int count = Math.min(length, piece.length - at);
        System.arraycopy(piece, at, to, offset, count);
        at += count;
        return count;
    }

    @Override
    public int available() {
        return piece.length - at;
    }

    private void fetch() throws IOException {
        if (reader == null) {
            reader = new Thread(this::readAll, "quorl-input");
            reader.setDaemon(true);
            reader.start();
        }
        try {
            Piece next = pieces.take();
            if (next.failure != null) throw next.failure;
            piece = next.bytes;
            at = 0;
            ended = piece.length == 0;
        } catch (InterruptedException e) {
            throw new InterruptedIOException("interrupted");
        }
    }

    private void readAll() {
        byte[] buffer = new byte[PIECE];
        try {
            for (int count = 1; count > 0;) {
                Piece next;
                try {
                    count = in.read(buffer);
                    next = new Piece(Arrays.copyOf(buffer, Math.max(count, 0)), null);
                } catch (IOException e) {
                    count = 0;
                    next = new Piece(buffer, e);
                }
                pieces.put(next);
            }
        } catch (InterruptedException e) {
            // It was closed, and nobody reads any more.
        }
    }

    @Override
    public void close() {
        if (reader != null) reader.interrupt();
    }
}
