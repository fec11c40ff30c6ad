package com.vesma.quorl.cli;

import java.io.IOException;
import java.io.Reader;
import java.util.ArrayList;
import java.util.List;

/** The records of a CSV source as fields of messages: the first record names the columns, each name:type. */
final class CsvFields {
    private final CsvReader reader;
    private final String source;
    private List<String> columns;

    /** source: what to call it when something is wrong. */
    CsvFields(Reader in, String source) {
        reader = new CsvReader(in);
        this.source = source;
    }

    /** The next record's fields, an empty cell leaving its field out; null at the end. */
    List<FieldArgument> next() throws IOException {
        try {
            if (columns == null) {
                columns = reader.read();
                if (columns == null) throw new IllegalArgumentException("there is no record with the columns' names");
                // The columns are looked at before the first record that uses them.
                for (String column : columns) FieldArgument.parse(column + "=");
            }
            List<String> cells = reader.read();
            if (cells == null) return null;
            if (cells.size() != columns.size()) {
                throw new IllegalArgumentException(cells.size() + " cells, and " + columns.size() + " columns");
            }
            List<FieldArgument> fields = new ArrayList<>();
            for (int i = 0; i < cells.size(); i++) {
                if (cells.get(i).isEmpty()) continue;
                FieldArgument field = FieldArgument.parse(columns.get(i) + "=" + cells.get(i));
                field.value();
                fields.add(field);
            }
            return fields;
        } catch (IllegalArgumentException e) {
            throw new IllegalArgumentException(source + " line " + reader.line() + ": " + e.getMessage());
        }
    }
}
