package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsg;
import java.net.Inet4Address;
import java.time.Instant;
import java.util.List;

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

    /** Adds fields whose values are data: a "{n}" in them stays what it is. */
    static void addAsTheyAre(QuorlMsg message, List<FieldArgument> fields) {
        for (FieldArgument field : fields) add(message, field.name(), field.type(), field.value());
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

    /**
     * One line: subject {name=value, ...} with the library's own form of the fields, or a JSON object of the subject, the
     * reply subject if there is one, and the fields as the library writes them in JSON.
     */
    static String line(QuorlMsg message, boolean json) {
        if (!json) return message.getSendSubject() + " " + message;
        StringBuilder out = new StringBuilder("{\"subject\":");
        Json.string(out, message.getSendSubject());
        String reply = message.getReplySubject();
        if (reply != null) {
            out.append(",\"reply\":");
            Json.string(out, reply);
        }
        return out.append(",\"message\":").append(message.toJson()).append('}').toString();
    }

    /** One line of the fields alone, for a reply, whose subject is an inbox that means nothing to anybody. */
    static String fieldsLine(QuorlMsg message, boolean json) {
        return json ? message.toJson() : message.toString();
    }
}
