package com.vesma.quorl.internal.json;

import com.vesma.quorl.QuorlMsgField;
import com.vesma.quorl.internal.image.Wire;
import java.util.HashMap;
import java.util.Locale;
import java.util.Map;

/**
 * What the types of fields are called in the JSON form, and the names of its members:
 * {@code name:type#id~instance}, each part but the type only where there is something to say.
 */
final class JsonTypes {
    static final char NAME_END = ':';
    static final char ID = '#';
    static final char INSTANCE = '~';

    private static final String[] NAMES = new String[256];
    private static final Map<String, Integer> TYPES = new HashMap<>();

    static {
        for (int type = 0; type < NAMES.length; type++) {
            int kind = Wire.kind(type);
            if (kind == Wire.NO_TYPE) {
                continue;
            }
            boolean array = kind == Wire.NUMBERS || kind == Wire.TEXTS || kind == Wire.MESSAGES;
            String name = QuorlMsgField.typeName(type).toLowerCase(Locale.ROOT);
            NAMES[type] = array ? name.replace("array", "[]") : name;
            TYPES.put(NAMES[type], type);
        }
    }

    private JsonTypes() {}

    static String name(int type) {
        return NAMES[type];
    }

    /** -1 when nothing is called so. */
    static int type(String name) {
        return TYPES.getOrDefault(name, -1);
    }

    /** The type of an array's elements. */
    static int element(int arrayType) {
        return arrayType - (QuorlMsgField.I8ARRAY - QuorlMsgField.I8);
    }

    static boolean isFloating(int type) {
        return type == QuorlMsgField.F32 || type == QuorlMsgField.F64;
    }

    static boolean is64(int type) {
        return type == QuorlMsgField.I64 || type == QuorlMsgField.U64;
    }

    /** Counts fields of a name, for the instance of the next. */
    static int next(Map<String, Integer> instances, String name) {
        return instances.merge(name, 1, Integer::sum);
    }
}
