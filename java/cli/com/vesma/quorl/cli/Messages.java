package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlMsgField;
import java.lang.reflect.Array;
import java.math.BigInteger;
import java.net.Inet4Address;
import java.time.Instant;
import java.util.HexFormat;
import java.util.List;
import java.util.Locale;

/** Makes messages from fields of the command line, and lines of text or JSON from messages. */
final class Messages {
    private Messages() {}

    /** A message to be closed by the caller; n stands in for "{n}". */
    static QuorlMsg create(String subject, List<FieldArgument> fields, long n) {
        QuorlMsg message = new QuorlMsg(subject);
        try {
            add(message, fields, n);
            return message;
        } catch (RuntimeException e) {
            message.close();
            throw e;
        }
    }

    static void add(QuorlMsg message, List<FieldArgument> fields, long n) {
        for (FieldArgument field : fields) add(message, field.name(), field.type(), field.numbered(n).value());
    }

    private static void add(QuorlMsg message, String name, FieldType type, Object value) {
        switch (type) {
            case BOOL -> message.addBool(name, (Boolean) value);
            case I8 -> message.addI8(name, (Byte) value);
            case U8 -> message.addU8(name, (Integer) value);
            case I16 -> message.addI16(name, (Short) value);
            case U16 -> message.addU16(name, (Integer) value);
            case I32 -> message.addI32(name, (Integer) value);
            case U32 -> message.addU32(name, (Long) value);
            case I64 -> message.addI64(name, (Long) value);
            case U64 -> message.addU64(name, (Long) value);
            case F32 -> message.addF32(name, (Float) value);
            case F64 -> message.addF64(name, (Double) value);
            case STRING -> message.addString(name, (String) value);
            case OPAQUE -> message.addOpaque(name, (byte[]) value);
            case XML -> message.addXml(name, (byte[]) value);
            case DATETIME -> message.addDateTime(name, (Instant) value);
            case IPADDR32 -> message.addIPAddr32(name, (Inet4Address) value);
            case IPPORT16 -> message.addIPPort16(name, (Integer) value);
        }
    }

    /** One line: subject {name=value, ...} with the library's own form of the fields, or the JSON object of the message. */
    static String line(QuorlMsg message, boolean json) {
        return json ? json(message) : message.getSendSubject() + " " + message;
    }

    /** One line of the fields alone, for a reply, whose subject is an inbox that means nothing to anybody. */
    static String fieldsLine(QuorlMsg message, boolean json) {
        if (!json) return message.toString();
        StringBuilder out = new StringBuilder("{");
        fields(out, message);
        return out.append('}').toString();
    }

    /** {"subject":"...","reply":"...","fields":[{"name":"...","type":"...","value":...}]} */
    private static String json(QuorlMsg message) {
        StringBuilder out = new StringBuilder("{\"subject\":");
        Json.string(out, message.getSendSubject());
        String reply = message.getReplySubject();
        if (reply != null) {
            out.append(",\"reply\":");
            Json.string(out, reply);
        }
        out.append(',');
        fields(out, message);
        return out.append('}').toString();
    }

    private static void fields(StringBuilder out, QuorlMsg message) {
        out.append("\"fields\":[");
        String separator = "";
        for (QuorlMsgField field : message) {
            out.append(separator).append('{');
            separator = ",";
            if (field.getName() != null) {
                out.append("\"name\":");
                Json.string(out, field.getName());
                out.append(',');
            }
            if (field.getId() != 0) out.append("\"id\":").append(field.getId()).append(',');
            out.append("\"type\":");
            Json.string(out, QuorlMsgField.typeName(field.getType()).toLowerCase(Locale.ROOT));
            out.append(",\"value\":");
            value(out, field.getValue(), field.getType());
            out.append('}');
        }
        out.append(']');
    }

    private static void value(StringBuilder out, Object value, int type) {
        if (value instanceof Boolean) {
            out.append(value);
        } else if (value instanceof Float number) {
            // Through its own shortest form: as a double 0.1f would read 0.10000000149011612.
            Json.number(out, Float.isFinite(number) ? Double.parseDouble(number.toString()) : number);
        } else if (value instanceof Double number) {
            Json.number(out, number);
        } else if (isWide(type)) {
            wide(out, value, type);
        } else if (value instanceof Number) {
            out.append(value);
        } else if (value instanceof byte[] bytes && type != QuorlMsgField.I8ARRAY) {
            Json.string(out, HexFormat.of().formatHex(bytes));
        } else if (value instanceof QuorlMsg inner) {
            out.append('{');
            fields(out, inner);
            out.append('}');
        } else if (value instanceof Inet4Address address) {
            Json.string(out, address.getHostAddress());
        } else if (value.getClass().isArray()) {
            out.append('[');
            for (int i = 0; i < Array.getLength(value); i++) {
                if (i > 0) out.append(',');
                value(out, Array.get(value, i), type);
            }
            out.append(']');
        } else if (value instanceof List<?> list) {
            out.append('[');
            for (int i = 0; i < list.size(); i++) {
                if (i > 0) out.append(',');
                value(out, list.get(i), type);
            }
            out.append(']');
        } else {
            Json.string(out, value.toString());
        }
    }

    private static boolean isWide(int type) {
        return type == QuorlMsgField.I64 || type == QuorlMsgField.U64 || type == QuorlMsgField.I64ARRAY
                || type == QuorlMsgField.U64ARRAY;
    }

    /** 64-bit numbers are strings: many readers of JSON keep only 53 bits. */
    private static void wide(StringBuilder out, Object value, int type) {
        if (value instanceof long[] numbers) {
            out.append('[');
            for (int i = 0; i < numbers.length; i++) {
                if (i > 0) out.append(',');
                wide(out, numbers[i], type);
            }
            out.append(']');
        } else if (value instanceof Long number && type == QuorlMsgField.U64ARRAY) {
            Json.string(out, Long.toUnsignedString(number));
        } else if (value instanceof BigInteger || value instanceof Long) {
            Json.string(out, value.toString());
        } else {
            throw new IllegalArgumentException("not a number of 64 bits: " + value);
        }
    }
}
