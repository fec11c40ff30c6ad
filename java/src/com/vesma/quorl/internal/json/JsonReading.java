package com.vesma.quorl.internal.json;

import com.google.gson.stream.JsonReader;
import com.google.gson.stream.JsonToken;
import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlMsgField;
import com.vesma.quorl.internal.image.ApiAccess;
import com.vesma.quorl.internal.image.Fields;
import com.vesma.quorl.internal.image.ImageWriter;
import com.vesma.quorl.internal.image.Texts;
import com.vesma.quorl.internal.image.Wire;
import java.io.EOFException;
import java.io.IOException;
import java.io.StringReader;
import java.time.DateTimeException;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Base64;
import java.util.HashMap;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * Makes a message of JSON. docs/reference/json.md says how it is written.
 */
final class JsonReading {
    /** What follows the name: type, id, instance. */
    private static final Pattern MEMBER = Pattern.compile("([a-z0-9\\[\\]]+)(?:#([0-9]{1,9}))?(?:~([0-9]{1,9}))?");

    private static final Pattern ADDRESS = Pattern.compile("([0-9]{1,3})\\.([0-9]{1,3})\\.([0-9]{1,3})\\.([0-9]{1,3})");

    private static final Pattern FAR_TIME = Pattern.compile("@(-?[0-9]{1,19})\\.([0-9]{9})");

    private static final Pattern PLACE = Pattern.compile(" at line [0-9]+ column [0-9]+ path .*", Pattern.DOTALL);

    private static final Pattern BITS = Pattern.compile("NaN\\(([0-9a-f]{1,16})\\)");

    private final JsonReader in;

    private JsonReading(JsonReader in) {
        this.in = in;
    }

    static ImageWriter read(String json) {
        ImageWriter out = new ImageWriter();
        // Of a text: nothing to close.
        JsonReader in = new JsonReader(new StringReader(json));
        try {
            JsonReading reading = new JsonReading(in);
            reading.expect(JsonToken.BEGIN_OBJECT, QuorlMsgField.MSG);
            reading.message(out);
            if (in.peek() != JsonToken.END_DOCUMENT) {
                throw ApiAccess.failure(QuorlException.DECODER_FAILED, "something stands behind the message");
            }
        } catch (IOException | IllegalStateException e) {
            String why = e instanceof EOFException ? "the JSON ends before the message does"
                    : e instanceof IllegalStateException ? "something stands here that does not belong to a message"
                    : "this is no JSON";
            throw ApiAccess.failure(QuorlException.DECODER_FAILED, why + place(in), e);
        }
        return out;
    }

    /** " at line 1 column 11 path $.a", as far as the reader knows. */
    private static String place(JsonReader in) {
        Matcher place = PLACE.matcher(in.toString());
        return place.find() ? place.group() : "";
    }

    private void message(ImageWriter out) throws IOException {
        Map<String, Integer> instances = new HashMap<>();
        in.beginObject();
        while (in.hasNext()) {
            member(out, in.nextName(), instances);
        }
        in.endObject();
    }

    private void member(ImageWriter out, String member, Map<String, Integer> instances) throws IOException {
        int end = member.lastIndexOf(JsonTypes.NAME_END);
        String name = end < 0 ? null : member.substring(0, end);
        Matcher parts = MEMBER.matcher(member.substring(end + 1));
        int type = parts.matches() ? JsonTypes.type(parts.group(1)) : -1;
        if (type < 0) {
            throw ApiAccess.failure(QuorlException.INVALID_TYPE, "member \"" + member
                    + "\": it is not called name:type, with a type like i32, f64[] or string");
        }
        int id = parts.group(2) == null ? 0 : Integer.parseInt(parts.group(2));
        int instance = parts.group(3) == null ? 1 : Integer.parseInt(parts.group(3));
        try {
            if (id > 0xFFFF || id == 0 && parts.group(2) != null) {
                throw ApiAccess.failure(QuorlException.INVALID_ARG, "a field's id is 1 to 65535, not " + parts.group(2));
            }
            if (instance != JsonTypes.next(instances, name)) {
                throw ApiAccess.failure(QuorlException.INVALID_INSTANCE,
                        "it is number " + instances.get(name) + " of its name, which ~ is to say from the second on");
            }
            out.head(type, Texts.cached(name, "the name"), id);
            value(out, type);
        } catch (QuorlException e) {
            throw e.getStatus() == QuorlException.ID_IN_USE ? e : ApiAccess.about(e, Fields.describe(name, id));
        } catch (IllegalArgumentException e) {
            throw ApiAccess.failure(
                    QuorlException.CONVERSION_FAILED, Fields.describe(name, id) + ": " + e.getMessage(), e);
        }
    }

    private void value(ImageWriter out, int type) throws IOException {
        switch (Wire.kind(type)) {
            case Wire.SCALAR:
                scalar(out, type);
                break;
            case Wire.TEXT:
                out.text(Texts.encode(text(type), "the text"));
                break;
            case Wire.BYTES:
                out.bytes(Base64.getDecoder().decode(text(type)));
                break;
            case Wire.NUMBERS:
                numbers(out, type);
                break;
            case Wire.TEXTS:
                texts(out, type);
                break;
            case Wire.MESSAGE:
                expect(JsonToken.BEGIN_OBJECT, type);
                out.beginMessage();
                message(out);
                out.endMessage();
                break;
            default:
                messages(out, type);
        }
    }

    // ---- single values ------------------------------------------------------------------------------------------------

    private void scalar(ImageWriter out, int type) throws IOException {
        switch (type) {
            case QuorlMsgField.BOOL:
                expect(JsonToken.BOOLEAN, type);
                out.put8(in.nextBoolean() ? 1 : 0);
                break;
            case QuorlMsgField.IPPORT16:
                int port = Fields.inRange(whole(type), 0, 0xFFFF, "IPPORT16");
                out.put8(port >> 8);
                out.put8(port);
                break;
            case QuorlMsgField.IPADDR32:
                address(out, text(type));
                break;
            case QuorlMsgField.DATETIME:
                time(out, text(type));
                break;
            default:
                out.putNumber(type, number(type));
        }
    }

    /** The bits of a number. */
    private long number(int type) throws IOException {
        return JsonTypes.isFloating(type) ? floating(type) : whole(type);
    }

    /** A number, or its digits in a string, since many writers of JSON have 53 bits only. */
    private long whole(int type) throws IOException {
        JsonToken token = in.peek();
        if (token != JsonToken.NUMBER && token != JsonToken.STRING) {
            throw unexpected(token, type);
        }
        String digits = in.nextString();
        try {
            if (type == QuorlMsgField.U64) {
                return Long.parseUnsignedLong(digits);
            }
            long number = Long.parseLong(digits);
            return type == QuorlMsgField.IPPORT16 ? number : Fields.fitted(number, type);
        } catch (NumberFormatException e) {
            throw ApiAccess.failure(QuorlException.CONVERSION_FAILED,
                    "it is the JSON " + name(token) + " " + digits + ", not " + QuorlMsgField.typeName(type), e);
        }
    }

    private long floating(int type) throws IOException {
        boolean wide = type == QuorlMsgField.F64;
        JsonToken token = in.peek();
        if (token == JsonToken.STRING) {
            String text = in.nextString();
            Matcher bits = BITS.matcher(text);
            double value = text.equals("NaN") ? Double.NaN : text.equals("Infinity") ? Double.POSITIVE_INFINITY
                    : text.equals("-Infinity") ? Double.NEGATIVE_INFINITY : 0;
            if (value != 0) {
                return wide ? Double.doubleToRawLongBits(value) : Float.floatToRawIntBits((float) value);
            }
            long given = bits.matches() ? Long.parseUnsignedLong(bits.group(1), 16) : 0;
            if (wide ? Double.isNaN(Double.longBitsToDouble(given))
                    : given >>> 32 == 0 && Float.isNaN(Float.intBitsToFloat((int) given))) {
                return given;
            }
            throw ApiAccess.failure(QuorlException.CONVERSION_FAILED,
                    "it is the JSON string " + text + ", not " + QuorlMsgField.typeName(type));
        }
        if (token != JsonToken.NUMBER) {
            throw unexpected(token, type);
        }
        String digits = in.nextString();
        double value = wide ? Double.parseDouble(digits) : Float.parseFloat(digits);
        if (Double.isInfinite(value)) {
            throw ApiAccess.failure(
                    QuorlException.CONVERSION_FAILED, "it is the JSON number " + digits + ", beyond "
                    + QuorlMsgField.typeName(type));
        }
        return wide ? Double.doubleToRawLongBits(value) : Float.floatToRawIntBits((float) value);
    }

    private static void address(ImageWriter out, String text) {
        Matcher parts = ADDRESS.matcher(text);
        if (!parts.matches()) {
            throw ApiAccess.failure(
                    QuorlException.CONVERSION_FAILED, "it is the JSON string " + text + ", not IPADDR32");
        }
        for (int i = 1; i <= 4; i++) {
            out.put8(Fields.inRange(Integer.parseInt(parts.group(i)), 0, 0xFF, "IPADDR32"));
        }
    }

    private static void time(ImageWriter out, String text) {
        Matcher far = FAR_TIME.matcher(text);
        try {
            if (far.matches()) {
                out.put64(Long.parseLong(far.group(1)));
                out.put32(Integer.parseInt(far.group(2)));
                return;
            }
            Instant time = Instant.parse(text);
            out.put64(time.getEpochSecond());
            out.put32(time.getNano());
        } catch (DateTimeException | NumberFormatException e) {
            throw ApiAccess.failure(
                    QuorlException.CONVERSION_FAILED, "it is the JSON string " + text + ", not DATETIME", e);
        }
    }

    private String text(int type) throws IOException {
        expect(JsonToken.STRING, type);
        return in.nextString();
    }

    // ---- arrays -------------------------------------------------------------------------------------------------------

    private void numbers(ImageWriter out, int type) throws IOException {
        int element = JsonTypes.element(type);
        long[] bits = new long[16];
        int count = 0;
        expect(JsonToken.BEGIN_ARRAY, type);
        in.beginArray();
        for (; in.hasNext(); count++) {
            if (count == bits.length) {
                bits = Arrays.copyOf(bits, 2 * count);
            }
            bits[count] = element(count, () -> number(element));
        }
        in.endArray();
        out.beginNumbers(type, count);
        for (int i = 0; i < count; i++) {
            out.putNumber(type, bits[i]);
        }
    }

    private void texts(ImageWriter out, int type) throws IOException {
        List<byte[]> texts = new ArrayList<>();
        expect(JsonToken.BEGIN_ARRAY, type);
        in.beginArray();
        while (in.hasNext()) {
            texts.add(element(texts.size(), () -> Texts.encode(text(QuorlMsgField.STRING), "the text")));
        }
        in.endArray();
        out.texts(texts.toArray(new byte[0][]));
    }

    private void messages(ImageWriter out, int type) throws IOException {
        ImageWriter aside = out.aside();
        int count = 0;
        expect(JsonToken.BEGIN_ARRAY, type);
        in.beginArray();
        for (; in.hasNext(); count++) {
            element(count, () -> {
                expect(JsonToken.BEGIN_OBJECT, QuorlMsgField.MSG);
                aside.beginMessage();
                message(aside);
                aside.endMessage();
                return null;
            });
        }
        in.endArray();
        out.messages(aside, count);
    }

    private interface Element<T> {
        T read() throws IOException;
    }

    private static <T> T element(int number, Element<T> element) throws IOException {
        try {
            return element.read();
        } catch (QuorlException e) {
            throw ApiAccess.about(e, "element " + number);
        } catch (IllegalArgumentException e) {
            throw ApiAccess.failure(QuorlException.CONVERSION_FAILED, "element " + number + ": " + e.getMessage(), e);
        }
    }

    // ---- refusals -----------------------------------------------------------------------------------------------------

    private void expect(JsonToken wanted, int type) throws IOException {
        JsonToken found = in.peek();
        if (found != wanted) {
            throw unexpected(found, type);
        }
    }

    private static QuorlException unexpected(JsonToken found, int type) {
        return ApiAccess.failure(
                QuorlException.CONVERSION_FAILED, "it is a JSON " + name(found) + ", not " + QuorlMsgField.typeName(type));
    }

    private static String name(JsonToken token) {
        switch (token) {
            case BEGIN_ARRAY:
                return "array";
            case BEGIN_OBJECT:
                return "object";
            default:
                return token.name().toLowerCase(Locale.ROOT);
        }
    }
}
