package com.vesma.quorl.cli;

import java.io.IOException;
import java.io.Reader;
import java.util.ArrayList;
import java.util.List;

/**
 * Reads records of comma-separated values: cells may be quoted, a quoted one holds commas, line ends and doubled quotes.
 * Lines end with LF or CR LF; empty lines are skipped.
 */
final class CsvReader {
    private static final int END = -1;

    private final Reader in;
    private int next;
    private boolean begun;
    private int line = 1;
    private int recordLine;

    CsvReader(Reader in) {
        this.in = in;
    }

    /** The line on which the last record began, from 1. */
    int line() {
        return recordLine;
    }

    /** The cells of the next record; null at the end. IllegalArgumentException when it is malformed. */
    List<String> read() throws IOException {
        if (!begun) {
            begun = true;
            next = in.read();
            // Some programs mark UTF-8 so.
            if (next == '\ufeff') next = in.read();
        }
        while (next == '\n' || next == '\r') advance();
        recordLine = line;
        if (next == END) return null;
        List<String> cells = new ArrayList<>();
        for (;;) {
            cells.add(next == '"' ? quoted() : plain());
            if (next != ',') break;
            advance();
        }
        return cells;
    }

    private String plain() throws IOException {
        StringBuilder cell = new StringBuilder();
        while (next != ',' && next != '\n' && next != '\r' && next != END) {
            if (next == '"') throw new IllegalArgumentException("a quote inside a cell that does not begin with one");
            cell.append((char) next);
            advance();
        }
        return cell.toString();
    }

    private String quoted() throws IOException {
        StringBuilder cell = new StringBuilder();
        advance();
        for (;;) {
            if (next == END) throw new IllegalArgumentException("a quote that is not closed");
            if (next == '"') {
                advance();
                if (next != '"') break;
            }
            cell.append((char) next);
            advance();
        }
        if (next != ',' && next != '\n' && next != '\r' && next != END) {
            throw new IllegalArgumentException("text behind the quote that closes a cell");
        }
        return cell.toString();
    }

    private void advance() throws IOException {
        if (next == '\n') line++;
        next = in.read();
    }
}
