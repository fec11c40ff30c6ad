package com.vesma.quorl.cli;

import java.io.IOException;
import java.io.Reader;
import java.util.ArrayList;
import java.util.List;

/**
 * Reads records of comma-separated values: cells may be quoted, a quoted one holds commas, line ends and doubled quotes.
 * Lines end with LF or CR LF; empty lines are skipped. The text is that of {@link TextSource}, which marks bytes that are no
 * UTF-8.
 */
final class CsvReader {
    private static final int END = -1;

    /** A cell: column is where it begins in its line, in characters from 1. */
    record Cell(String text, boolean quoted, int line, int column) {}

    private final Reader in;
    private int next;
    private boolean begun;
    private int line = 1;
    private int column = 1;

    /** Where the cell that is being read began. */
    private int cellLine = 1;
    private int cellColumn = 1;

    CsvReader(Reader in) {
        this.in = in;
    }

    /** The place of the last cell that was begun, as complaints have it. */
    String place() {
        return "line " + cellLine + " column " + cellColumn;
    }

    /** The cells of the next record; null at the end. IllegalArgumentException when it is malformed. */
    List<Cell> read() throws IOException {
        if (!begun) {
            begun = true;
            next = in.read();
            // Some programs mark UTF-8 so.
            if (next == '\ufeff') next = in.read();
        }
        while (next == '\n' || next == '\r') advance();
        cellLine = line;
        cellColumn = column;
        if (next == END) return null;
        List<Cell> cells = new ArrayList<>();
        for (;;) {
            cellLine = line;
            cellColumn = column;
            boolean quoted = next == '"';
            cells.add(new Cell(quoted ? quoted() : plain(), quoted, cellLine, cellColumn));
            if (next != ',') break;
            advance();
        }
        return cells;
    }

    private String plain() throws IOException {
        StringBuilder cell = new StringBuilder();
        while (next != ',' && next != '\n' && next != '\r' && next != END) {
            if (next == '"') throw new IllegalArgumentException("a quote inside a cell that does not begin with one");
            take(cell);
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
            take(cell);
        }
        if (next != ',' && next != '\n' && next != '\r' && next != END) {
            throw new IllegalArgumentException("text behind the quote that closes a cell");
        }
        return cell.toString();
    }

    private void take(StringBuilder cell) throws IOException {
        if (TextSource.isWrong(cell, next)) throw new IllegalArgumentException(TextSource.WRONG);
        if (cell.length() >= TextSource.LONGEST) throw new IllegalArgumentException(TextSource.TOO_LONG);
        cell.append((char) next);
        advance();
    }

    private void advance() throws IOException {
        if (next == '\n') {
            line++;
            column = 1;
        } else if (!Character.isLowSurrogate((char) next)) {
            column++;
        }
        next = in.read();
    }
}
