package com.vesma.quorl.cli;

import java.nio.charset.StandardCharsets;

/**
 * What a field is called: its name, its type and its id, written name:type#id. The id is left out when it is 0; a field
 * without a name (null) is type#id, with an id of 0 too, since a type alone would be a name whose type was forgotten.
 */
record FieldHead(String name, FieldType type, int id) {
    // As the library has it.
    private static final int MAX_NAME_BYTES = 127;
    private static final int MAX_ID = 65535;

    /** Reads one in front of a value. */
    static FieldHead parse(String text) {
        return parse(text, "name:type=value");
    }

    /** Reads one at the head of a column. */
    static FieldHead ofColumn(String text) {
        return parse(text, text + ":type");
    }

    /** Reads one; the name ends at the last ":". IllegalArgumentException says what is wrong. */
    private static FieldHead parse(String text, String form) {
        int colon = text.lastIndexOf(':');
        String typed = text.substring(colon + 1);
        int hash = typed.indexOf('#');
        FieldType type = FieldType.named(hash < 0 ? typed : typed.substring(0, hash));
        if (colon < 0 && (hash < 0 || type == null)) {
            throw new IllegalArgumentException("field " + Texts.quoted(text)
                    + " has no type; write " + form + ", with a type of " + FieldType.all());
        }
        String name = colon < 0 ? null : text.substring(0, colon);
        String about = "field " + Texts.quoted(name == null ? text : name);
        if (type == null) {
            throw new IllegalArgumentException(about + ": unknown type "
                    + Texts.quoted(hash < 0 ? typed : typed.substring(0, hash)) + "; the types are " + FieldType.all());
        }
        int bytes = name == null ? 0 : name.getBytes(StandardCharsets.UTF_8).length;
        if (bytes > MAX_NAME_BYTES) {
            throw new IllegalArgumentException("field \"" + name + "\": the name has " + bytes + " bytes; at most "
                    + MAX_NAME_BYTES + " are allowed");
        }
        String digits = hash < 0 ? "0" : typed.substring(hash + 1);
        boolean number = digits.matches("[0-9]{1,5}") && Integer.parseInt(digits) <= MAX_ID;
        if (!number || (hash >= 0 && name != null && Integer.parseInt(digits) == 0)) {
            throw new IllegalArgumentException(about + ": an id is a number from 1 to " + MAX_ID + ", not "
                    + Texts.quoted(digits));
        }
        return new FieldHead(name, type, Integer.parseInt(digits));
    }

    @Override
    public String toString() {
        return name == null ? type.label() + '#' + id : name + ':' + type.label() + (id == 0 ? "" : "#" + id);
    }

    /** For complaints. */
    String about() {
        return "field " + Texts.quoted(name == null ? toString() : name);
    }
}
