package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsgField;
import java.util.Locale;
import java.util.stream.Collectors;
import java.util.stream.IntStream;

/** A type of field, under the name that the command and the JSON of messages give it. */
record FieldType(int code, String label) {
    /** The types of one value that is neither a message nor the program's own. */
    private static final int[] SCALARS = {QuorlMsgField.BOOL, QuorlMsgField.I8, QuorlMsgField.U8, QuorlMsgField.I16,
        QuorlMsgField.U16, QuorlMsgField.I32, QuorlMsgField.U32, QuorlMsgField.I64, QuorlMsgField.U64, QuorlMsgField.F32,
        QuorlMsgField.F64, QuorlMsgField.STRING, QuorlMsgField.OPAQUE, QuorlMsgField.XML, QuorlMsgField.DATETIME,
        QuorlMsgField.IPADDR32, QuorlMsgField.IPPORT16};

    /** Those whose value is written as JSON. */
    private static final int[] STRUCTURED = {QuorlMsgField.MSG, QuorlMsgField.I8ARRAY, QuorlMsgField.U8ARRAY,
        QuorlMsgField.I16ARRAY, QuorlMsgField.U16ARRAY, QuorlMsgField.I32ARRAY, QuorlMsgField.U32ARRAY, QuorlMsgField.I64ARRAY,
        QuorlMsgField.U64ARRAY, QuorlMsgField.F32ARRAY, QuorlMsgField.F64ARRAY, QuorlMsgField.STRINGARRAY,
        QuorlMsgField.MSGARRAY};

    private static final int LAST_USER = 255;

    /** The type of a field's number. */
    static FieldType of(int code) {
        return new FieldType(code, QuorlMsgField.typeName(code).toLowerCase(Locale.ROOT).replace("array", "[]"));
    }

    /** The type of that name, or null. */
    static FieldType named(String label) {
        IntStream known = IntStream.concat(IntStream.concat(IntStream.of(SCALARS), IntStream.of(STRUCTURED)),
                IntStream.rangeClosed(QuorlMsgField.USER_FIRST, LAST_USER));
        return known.mapToObj(FieldType::of).filter(type -> type.label.equals(label)).findFirst().orElse(null);
    }

    /** Whether it is the type of a message, of several, or of an array. */
    boolean isStructured() {
        return IntStream.of(STRUCTURED).anyMatch(structured -> structured == code);
    }

    /** Whether it is a type of bytes that only programs know. */
    boolean isUser() {
        return code >= QuorlMsgField.USER_FIRST;
    }

    static String all() {
        return IntStream.of(SCALARS).mapToObj(code -> of(code).label).collect(Collectors.joining(", "))
                + ", msg, user128 to user255, and arrays such as i32[], string[], msg[]";
    }
}
