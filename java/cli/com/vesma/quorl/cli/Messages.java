package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlMsgField;
import java.net.Inet4Address;
import java.time.Instant;
import java.util.ArrayList;
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
        for (FieldArgument field : fields) add(message, field.head(), field.numbered(n).value());
    }

    /** Adds a field whose value is data: a "{n}" in it stays what it is. */
    static void addAsItIs(QuorlMsg message, FieldArgument field) {
        add(message, field.head(), field.value());
    }

    private static void add(QuorlMsg message, FieldHead head, Object value) {
        String name = head.name();
        int id = head.id();
        switch (head.type().code()) {
            case QuorlMsgField.BOOL -> message.addBool(name, id, (Boolean) value);
            case QuorlMsgField.I8 -> message.addI8(name, id, (Byte) value);
            case QuorlMsgField.U8 -> message.addU8(name, id, (Integer) value);
            case QuorlMsgField.I16 -> message.addI16(name, id, (Short) value);
            case QuorlMsgField.U16 -> message.addU16(name, id, (Integer) value);
            case QuorlMsgField.I32 -> message.addI32(name, id, (Integer) value);
            case QuorlMsgField.U32 -> message.addU32(name, id, (Long) value);
            case QuorlMsgField.I64 -> message.addI64(name, id, (Long) value);
            case QuorlMsgField.U64 -> message.addU64(name, id, (Long) value);
            case QuorlMsgField.F32 -> message.addF32(name, id, (Float) value);
            case QuorlMsgField.F64 -> message.addF64(name, id, (Double) value);
            case QuorlMsgField.STRING -> message.addString(name, id, (String) value);
            case QuorlMsgField.OPAQUE -> message.addOpaque(name, id, (byte[]) value);
            case QuorlMsgField.XML -> message.addXml(name, id, (byte[]) value);
            case QuorlMsgField.DATETIME -> message.addDateTime(name, id, (Instant) value);
            case QuorlMsgField.IPADDR32 -> message.addIPAddr32(name, id, (Inet4Address) value);
            case QuorlMsgField.IPPORT16 -> message.addIPPort16(name, id, (Integer) value);
            default -> {
                if (head.type().isStructured()) {
                    addStructured(message, head, (String) value);
                } else {
                    message.addUser(name, id, head.type().code(), (byte[]) value);
                }
            }
        }
    }

    /** Adds an array or a message of JSON, which the library reads. */
    private static void addStructured(QuorlMsg message, FieldHead head, String json) {
        String name = head.name();
        int id = head.id();
        try (QuorlMsg read = readStructured(head, json)) {
            Object value = read.getFieldAt(0).getValue();
            switch (head.type().code()) {
                case QuorlMsgField.MSG -> message.addMsg(name, id, (QuorlMsg) value);
                case QuorlMsgField.I8ARRAY -> message.addI8Array(name, id, (byte[]) value);
                case QuorlMsgField.U8ARRAY -> message.addU8Array(name, id, (short[]) value);
                case QuorlMsgField.I16ARRAY -> message.addI16Array(name, id, (short[]) value);
                case QuorlMsgField.U16ARRAY -> message.addU16Array(name, id, (int[]) value);
                case QuorlMsgField.I32ARRAY -> message.addI32Array(name, id, (int[]) value);
                case QuorlMsgField.U32ARRAY -> message.addU32Array(name, id, (long[]) value);
                case QuorlMsgField.I64ARRAY -> message.addI64Array(name, id, (long[]) value);
                case QuorlMsgField.U64ARRAY -> message.addU64Array(name, id, (long[]) value);
                case QuorlMsgField.F32ARRAY -> message.addF32Array(name, id, (float[]) value);
                case QuorlMsgField.F64ARRAY -> message.addF64Array(name, id, (double[]) value);
                case QuorlMsgField.STRINGARRAY -> message.addStringArray(name, id, (String[]) value);
                default -> message.addMsgArray(name, id, messages(value));
            }
        }
    }

    private static List<QuorlMsg> messages(Object value) {
        List<QuorlMsg> messages = new ArrayList<>();
        for (Object one : (List<?>) value) messages.add((QuorlMsg) one);
        return messages;
    }

    private static QuorlMsg readStructured(FieldHead head, String json) {
        StringBuilder text = new StringBuilder("{");
        Json.string(text, (head.name() == null ? "" : head.name() + ":") + head.type().label());
        QuorlMsg read;
        try {
            read = QuorlMsg.fromJson(text.append(':').append(json).append('}').toString());
        } catch (QuorlException e) {
            throw bad(head, json, e.getStatus() == QuorlException.DECODER_FAILED ? null : e.getDetail());
        }
        if (read.getFieldCount() == 1) return read;
        read.close();
        throw bad(head, json, null);
    }

    private static IllegalArgumentException bad(FieldHead head, String json, String why) {
        return new IllegalArgumentException(why != null ? why
                : head.about() + ": type " + head.type().label() + " takes JSON as messages have it, not " + Texts.quoted(json));
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
