package com.vesma.quorl.cli;

import java.util.Arrays;
import java.util.stream.Collectors;

/** The field types that the command line can write, under the names that it gives them. */
enum FieldType {
    BOOL("bool"),
    I8("i8"),
    U8("u8"),
    I16("i16"),
    U16("u16"),
    I32("i32"),
    U32("u32"),
    I64("i64"),
    U64("u64"),
    F32("f32"),
    F64("f64"),
    STRING("string"),
    OPAQUE("opaque"),
    XML("xml"),
    DATETIME("datetime"),
    IPADDR32("ipaddr32"),
    IPPORT16("ipport16");

    final String label;

    FieldType(String label) {
        this.label = label;
    }

    /** The type of that name, or null. */
    static FieldType named(String label) {
        for (FieldType type : values()) {
            if (type.label.equals(label)) return type;
        }
        return null;
    }

    static String all() {
        return Arrays.stream(values()).map(type -> type.label).collect(Collectors.joining(", "));
    }
}
