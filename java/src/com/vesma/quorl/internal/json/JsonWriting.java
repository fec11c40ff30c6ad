package com.vesma.quorl.internal.json;

import com.google.gson.stream.JsonWriter;
import com.vesma.quorl.QuorlMsgField;
import com.vesma.quorl.internal.image.ImageValues;
import com.vesma.quorl.internal.image.MessageImage;
import com.vesma.quorl.internal.image.Wire;
import java.io.IOException;
import java.io.StringWriter;
import java.io.UncheckedIOException;
import java.time.Instant;
import java.util.Arrays;
import java.util.Base64;
import java.util.HashMap;
import java.util.Locale;
import java.util.Map;

/**
 * Writes a message as JSON. docs/reference/json.md says how.
 */
final class JsonWriting {
    private JsonWriting() {}

    static String write(MessageImage image) {
        StringWriter text = new StringWriter();
        try (JsonWriter out = new JsonWriter(text)) {
            message(out, image);
        } catch (IOException e) {
            throw new UncheckedIOException("a string takes all that is written", e);
        }
        return text.toString();
    }

    private static void message(JsonWriter out, MessageImage image) throws IOException {
        Map<String, Integer> instances = new HashMap<>();
        out.beginObject();
        for (int field = 0; field < image.count; field++) {
            String name = image.name(field);
            int type = image.type(field);
            int id = image.id(field);
            int instance = JsonTypes.next(instances, name);
            StringBuilder member = new StringBuilder();
            if (name != null) {
                member.append(name).append(JsonTypes.NAME_END);
            }
            member.append(JsonTypes.name(type));
            if (id != 0) {
                member.append(JsonTypes.ID).append(id);
            }
            if (instance > 1) {
                member.append(JsonTypes.INSTANCE).append(instance);
            }
            out.name(member.toString());
            value(out, image, field, type);
        }
        out.endObject();
    }

    private static void value(JsonWriter out, MessageImage image, int field, int type) throws IOException {
        int at = image.value(field);
        switch (Wire.kind(type)) {
            case Wire.SCALAR:
                scalar(out, image, field, type);
                break;
            case Wire.TEXT:
                out.value(ImageValues.string(image, field));
                break;
            case Wire.BYTES:
                out.value(Base64.getEncoder().encodeToString(Arrays.copyOfRange(image.bytes, at, at + image.length(field))));
                break;
            case Wire.NUMBERS:
                out.beginArray();
                for (int i = 0; i < image.length(field); i++, at += Wire.size(type)) {
                    number(out, JsonTypes.element(type), image.bytes, at);
                }
                out.endArray();
                break;
            case Wire.TEXTS:
                out.beginArray();
                for (String text : ImageValues.stringArray(image, field)) {
                    out.value(text);
                }
                out.endArray();
                break;
            case Wire.MESSAGE:
                message(out, ImageValues.image(image, field));
                break;
            default:
                out.beginArray();
                for (MessageImage inside : ImageValues.images(image, field)) {
                    message(out, inside);
                }
                out.endArray();
        }
    }

    private static void scalar(JsonWriter out, MessageImage image, int field, int type) throws IOException {
        int at = image.value(field);
        switch (type) {
            case QuorlMsgField.BOOL:
                out.value(ImageValues.bool(image, field));
                break;
            case QuorlMsgField.IPPORT16:
                out.value(ImageValues.ipPort16(image, field));
                break;
            case QuorlMsgField.IPADDR32:
                out.value(ImageValues.ipAddr32(image, field).getHostAddress());
                break;
            case QuorlMsgField.DATETIME:
                out.value(time(image, field, at));
                break;
            default:
                number(out, type, image.bytes, at);
        }
    }

    /** As ISO 8601 says, or beyond what java.time holds, the seconds and the nanoseconds after them. */
    private static String time(MessageImage image, int field, int at) {
        long seconds = (long) Wire.I64.get(image.bytes, at);
        if (seconds >= Instant.MIN.getEpochSecond() && seconds <= Instant.MAX.getEpochSecond()) {
            return ImageValues.dateTime(image, field).toString();
        }
        return String.format(Locale.ROOT, "@%d.%09d", seconds, (int) Wire.I32.get(image.bytes, at + 8));
    }

    private static void number(JsonWriter out, int type, byte[] b, int at) throws IOException {
        switch (type) {
            case QuorlMsgField.I8:
                out.value(b[at]);
                break;
            case QuorlMsgField.U8:
                out.value(b[at] & 0xFF);
                break;
            case QuorlMsgField.I16:
                out.value((short) Wire.I16.get(b, at));
                break;
            case QuorlMsgField.U16:
                out.value((short) Wire.I16.get(b, at) & 0xFFFF);
                break;
            case QuorlMsgField.I32:
                out.value((int) Wire.I32.get(b, at));
                break;
            case QuorlMsgField.U32:
                out.value((int) Wire.I32.get(b, at) & 0xFFFF_FFFFL);
                break;
            case QuorlMsgField.I64:
                out.value(Long.toString((long) Wire.I64.get(b, at)));
                break;
            case QuorlMsgField.U64:
                out.value(Long.toUnsignedString((long) Wire.I64.get(b, at)));
                break;
            case QuorlMsgField.F32:
                float f32 = (float) Wire.F32.get(b, at);
                if (Float.isFinite(f32)) {
                    out.value((Number) f32);
                } else {
                    out.value(notFinite(f32, (int) Wire.I32.get(b, at) & 0xFFFF_FFFFL, 0x7FC0_0000L));
                }
                break;
            default:
                double f64 = (double) Wire.F64.get(b, at);
                if (Double.isFinite(f64)) {
                    out.value(f64);
                } else {
                    out.value(notFinite(f64, (long) Wire.I64.get(b, at), 0x7FF8_0000_0000_0000L));
                }
        }
    }

    /** Infinity, -Infinity, NaN; one with other bits than usual has them behind it. */
    private static String notFinite(double value, long bits, long usual) {
        return value == value || bits == usual ? Double.toString(value) : "NaN(" + Long.toHexString(bits) + ")";
    }
}
