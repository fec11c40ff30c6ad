package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlMsg;
import java.io.IOException;
import java.io.Reader;
import java.util.ArrayList;
import java.util.List;

/**
 * The records of a table as messages. Its first record names the columns: a field's name:type, or "subject" and "reply" for
 * the message's subjects. In a table that begins with "subject" a record that begins with that word, unquoted, names the
 * columns anew.
 */
final class CsvMessages implements MessageSource {
    static final String SUBJECT = "subject";
    static final String REPLY = "reply";

    /** A column: a field, or with a null head one of the subjects. */
    private record Column(FieldHead head, boolean reply) {}

    private final Reader in;
    private final CsvReader reader;
    private final String title;
    private final String subject;
    private final List<FieldArgument> first;
    private List<Column> columns;
    private long number;

    /** subject: where all messages go, or null for what the table says; first: fields that come before the table's. */
    CsvMessages(TextSource source, String subject, List<FieldArgument> first) throws IOException {
        in = source.open();
        reader = new CsvReader(in);
        title = source.title();
        this.subject = subject;
        this.first = first;
    }

    @Override
    public QuorlMsg next() throws IOException {
        try {
            List<CsvReader.Cell> cells = reader.read();
            if (columns == null && cells == null) {
                throw new IllegalArgumentException("there is no record with the columns' names");
            }
            while (cells != null && (columns == null || begins(cells.get(0)))) {
                columns = columns(cells);
                cells = reader.read();
            }
            if (cells == null) return null;
            if (cells.size() != columns.size()) {
                throw new IllegalArgumentException(cells.size() + " cells, and " + columns.size() + " columns");
            }
            return message(cells);
        } catch (Misplaced e) {
            throw new IllegalArgumentException(title + " line " + e.cell.line() + " column " + e.cell.column() + ": "
                    + e.getMessage());
        } catch (IllegalArgumentException e) {
            throw new IllegalArgumentException(title + " " + reader.place() + ": " + e.getMessage());
        }
    }

    /** Something is wrong with a cell. */
    private static final class Misplaced extends RuntimeException {
        private static final long serialVersionUID = 1;
        private final transient CsvReader.Cell cell;

        Misplaced(CsvReader.Cell cell, String message) {
            super(message, null, false, false);
            this.cell = cell;
        }
    }

    private boolean begins(CsvReader.Cell cell) {
        Column opening = columns.get(0);
        return opening.head == null && !opening.reply && !cell.quoted() && cell.text().equals(SUBJECT);
    }

    private List<Column> columns(List<CsvReader.Cell> cells) {
        List<Column> named = new ArrayList<>();
        for (CsvReader.Cell cell : cells) {
            try {
                boolean reply = cell.text().equals(REPLY);
                Column column = reply || cell.text().equals(SUBJECT) ? new Column(null, reply)
                        : new Column(FieldHead.ofColumn(cell.text()), false);
                if (column.head == null && named.contains(column)) {
                    throw new IllegalArgumentException("a second column " + Texts.quoted(cell.text()));
                }
                named.add(column);
            } catch (IllegalArgumentException e) {
                throw new Misplaced(cell, e.getMessage());
            }
        }
        if (subject == null && !named.contains(new Column(null, false))) {
            throw new Misplaced(cells.get(0), "the table has no column \"subject\", and the command line names no SUBJECT");
        }
        return named;
    }

    private QuorlMsg message(List<CsvReader.Cell> cells) {
        QuorlMsg message = subject == null ? new QuorlMsg() : new QuorlMsg(subject);
        try {
            number++;
            Messages.add(message, first, number);
            for (int i = 0; i < cells.size(); i++) add(message, columns.get(i), cells.get(i));
            return message;
        } catch (RuntimeException e) {
            message.close();
            throw e;
        }
    }

    private void add(QuorlMsg message, Column column, CsvReader.Cell cell) {
        try {
            if (column.head != null) {
                // Only a text can be empty; some programs quote every cell.
                boolean absent = cell.text().isEmpty() && !(cell.quoted() && takesEmpty(column.head.type()));
                if (!absent) Messages.addAsItIs(message, new FieldArgument(column.head, cell.text()));
            } else if (!column.reply && subject == null) {
                message.setSendSubject(sendable("subject", cell.text()));
            } else if (column.reply && !cell.text().isEmpty()) {
                message.setReplySubject(sendable("reply subject", cell.text()));
            }
        } catch (IllegalArgumentException e) {
            throw new Misplaced(cell, e.getMessage());
        } catch (QuorlException e) {
            throw new Misplaced(cell, e.getDetail() == null ? e.getMessage() : e.getDetail());
        }
    }

    private static boolean takesEmpty(FieldType type) {
        return type.isUser() || switch (type.label()) {
            case "string", "opaque", "xml" -> true;
            default -> false;
        };
    }

    /** A subject that can be sent to; IllegalArgumentException otherwise. */
    static String sendable(String what, String subject) {
        String why = Subjects.whyNotSendable(subject);
        if (why != null) throw new IllegalArgumentException(what + " " + Texts.quoted(subject) + ": " + why);
        return subject;
    }

    @Override
    public void close() throws IOException {
        in.close();
    }
}
