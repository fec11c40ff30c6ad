package com.vesma.quorl.internal.records;

import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlMsgField;
import com.vesma.quorl.QuorlMsgView;
import com.vesma.quorl.internal.image.ApiAccess;
import com.vesma.quorl.internal.image.Fields;
import com.vesma.quorl.internal.image.ImageValues;
import com.vesma.quorl.internal.image.ImageWriter;
import com.vesma.quorl.internal.image.MessageImage;
import com.vesma.quorl.internal.image.Texts;
import com.vesma.quorl.internal.image.Wire;
import java.lang.reflect.ParameterizedType;
import java.lang.reflect.Type;
import java.math.BigInteger;
import java.net.Inet4Address;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;
import java.util.Map;
import java.util.Optional;

/**
 * How a Java type is written as a field and read from one.
 *
 * <p>A value is written as one type of field. It is read from every type that holds the very same value: numbers as
 * {@link QuorlMsg} converts them, arrays from those that Java has the same array for.
 */
final class Codec {
    private interface Writer {
        void write(ImageWriter out, Object value);
    }

    private interface Reader {
        Object read(MessageImage image, int field);
    }

    /** In the place of an annotation's type. */
    static final int NOT_ANNOTATED = -1;

    private static final BigInteger U64_MAX = ImageValues.unsigned(-1);

    /** Of classes as they are, without an annotation or parameters. */
    private static final ClassValue<Codec> PLAIN = new ClassValue<>() {
        @Override
        protected Codec computeValue(Class<?> type) {
            return plain(type);
        }
    };

    private final int type;
    private final Writer writer;
    private final Reader reader;

    private Codec(int type, Writer writer, Reader reader) {
        this.type = type;
        this.writer = writer;
        this.reader = reader;
    }

    void write(ImageWriter out, byte[] name, Object value) {
        out.head(type, name, 0);
        writer.write(out, value);
    }

    Object read(MessageImage image, int field) {
        return reader.read(image, field);
    }

    /** Of a class; IllegalArgumentException when no field can hold it. */
    static Codec of(Class<?> type) {
        return PLAIN.get(type);
    }

    /** Of a component's type; fieldType: what it is annotated with. */
    static Codec of(Type type, int fieldType) {
        Codec codec;
        if (type instanceof ParameterizedType && ((ParameterizedType) type).getRawType() == List.class) {
            codec = list(((ParameterizedType) type).getActualTypeArguments()[0], fieldType);
        } else if (!(type instanceof Class)) {
            throw none(type);
        } else if (fieldType == NOT_ANNOTATED) {
            codec = of((Class<?>) type);
        } else {
            codec = typed((Class<?>) type, fieldType);
        }
        if (fieldType != NOT_ANNOTATED && codec.type != fieldType) {
            throw new IllegalArgumentException(type.getTypeName() + " is not a value of " + QuorlMsgField.typeName(fieldType));
        }
        return codec;
    }

    private static IllegalArgumentException none(Type type) {
        return new IllegalArgumentException("no field holds " + type.getTypeName());
    }

    // ---- numbers ------------------------------------------------------------------------------------------------------

    /** The classes of whole numbers with the types that they stand for. */
    private static final Map<Class<?>, Integer> WHOLE = Map.of(
            byte.class, QuorlMsgField.I8, Byte.class, QuorlMsgField.I8, short.class, QuorlMsgField.I16,
            Short.class, QuorlMsgField.I16, int.class, QuorlMsgField.I32, Integer.class, QuorlMsgField.I32,
            long.class, QuorlMsgField.I64, Long.class, QuorlMsgField.I64);

    private static Codec whole(int javaType, int fieldType) {
        boolean bits = javaType == QuorlMsgField.I64 && fieldType == QuorlMsgField.U64;
        return new Codec(fieldType, (out, value) -> {
            long number = ((Number) value).longValue();
            if (fieldType == QuorlMsgField.IPPORT16) {
                Fields.inRange(number, 0, 0xFFFF, "IPPORT16");
                out.put8((int) number >> 8);
                out.put8((int) number);
            } else {
                out.putNumber(fieldType, bits ? number : Fields.fitted(number, fieldType));
            }
        }, (image, field) -> {
            if (fieldType == QuorlMsgField.IPPORT16) {
                return boxed(javaType, ImageValues.ipPort16(image, field), image, field);
            }
            switch (javaType) {
                case QuorlMsgField.I8:
                    return ImageValues.i8(image, field);
                case QuorlMsgField.I16:
                    return ImageValues.i16(image, field);
                case QuorlMsgField.I32:
                    return ImageValues.i32(image, field);
                default:
                    return bits ? ImageValues.u64(image, field) : ImageValues.i64(image, field);
            }
        });
    }

    private static Object boxed(int javaType, int port, MessageImage image, int field) {
        switch (javaType) {
            case QuorlMsgField.I32:
                return port;
            case QuorlMsgField.I64:
                return (long) port;
            default:
                throw ImageValues.mismatch(image, field, QuorlMsgField.typeName(javaType));
        }
    }

    private static Codec typed(Class<?> type, int fieldType) {
        Integer whole = WHOLE.get(type);
        boolean isWholeType = fieldType >= QuorlMsgField.I8 && fieldType <= QuorlMsgField.U64;
        if (whole != null && (isWholeType || fieldType == QuorlMsgField.IPPORT16 && whole >= QuorlMsgField.I32)) {
            return whole(whole, fieldType);
        }
        boolean isBytes = fieldType >= 0 && fieldType <= 0xFF && Wire.kind(fieldType) == Wire.BYTES;
        if (type == byte[].class && (isBytes || fieldType == QuorlMsgField.I8ARRAY)
                || type == short[].class && fieldType == QuorlMsgField.U8ARRAY
                || type == int[].class && fieldType == QuorlMsgField.U16ARRAY
                || type == long[].class && (fieldType == QuorlMsgField.U32ARRAY || fieldType == QuorlMsgField.U64ARRAY)) {
            return array(type, fieldType);
        }
        return of(type);
    }

    // ---- arrays -------------------------------------------------------------------------------------------------------

    /** The types of field that have an array for value, by the array. */
    private static final Map<Class<?>, Integer> ARRAYS = Map.of(
            byte[].class, QuorlMsgField.OPAQUE, short[].class, QuorlMsgField.I16ARRAY, int[].class, QuorlMsgField.I32ARRAY,
            long[].class, QuorlMsgField.I64ARRAY, float[].class, QuorlMsgField.F32ARRAY,
            double[].class, QuorlMsgField.F64ARRAY, String[].class, QuorlMsgField.STRINGARRAY);

    /** Reads from every type of field whose value is that array. */
    private static Codec array(Class<?> type, int fieldType) {
        return new Codec(fieldType, (out, value) -> writeArray(out, fieldType, value), (image, field) -> {
            boolean same = image.type(field) == fieldType;
            Object value = same || Wire.kind(image.type(field)) == Wire.BYTES && type == byte[].class
                    || Wire.kind(image.type(field)) == Wire.NUMBERS ? ImageValues.value(image, field) : null;
            if (value == null || value.getClass() != type) {
                throw ImageValues.mismatch(image, field, QuorlMsgField.typeName(fieldType));
            }
            return value;
        });
    }

    private static void writeArray(ImageWriter out, int type, Object value) {
        switch (type) {
            case QuorlMsgField.I8ARRAY:
                byte[] i8 = (byte[]) value;
                out.beginNumbers(type, i8.length);
                out.put(i8, i8.length);
                break;
            case QuorlMsgField.U8ARRAY:
                short[] u8 = (short[]) value;
                out.beginNumbers(type, u8.length);
                for (short number : u8) {
                    out.put8((int) Fields.fitted(number, QuorlMsgField.U8));
                }
                break;
            case QuorlMsgField.I16ARRAY:
                short[] i16 = (short[]) value;
                out.beginNumbers(type, i16.length);
                out.numbers(i16.length, 2).asShortBuffer().put(i16);
                break;
            case QuorlMsgField.U16ARRAY:
                int[] u16 = (int[]) value;
                out.beginNumbers(type, u16.length);
                for (int number : u16) {
                    out.put16((int) Fields.fitted(number, QuorlMsgField.U16));
                }
                break;
            case QuorlMsgField.I32ARRAY:
                int[] i32 = (int[]) value;
                out.beginNumbers(type, i32.length);
                out.numbers(i32.length, 4).asIntBuffer().put(i32);
                break;
            case QuorlMsgField.U32ARRAY:
                long[] u32 = (long[]) value;
                out.beginNumbers(type, u32.length);
                for (long number : u32) {
                    out.put32((int) Fields.fitted(number, QuorlMsgField.U32));
                }
                break;
            case QuorlMsgField.I64ARRAY:
            case QuorlMsgField.U64ARRAY:
                long[] i64 = (long[]) value;
                out.beginNumbers(type, i64.length);
                out.numbers(i64.length, 8).asLongBuffer().put(i64);
                break;
            case QuorlMsgField.F32ARRAY:
                float[] f32 = (float[]) value;
                out.beginNumbers(type, f32.length);
                out.numbers(f32.length, 4).asFloatBuffer().put(f32);
                break;
            case QuorlMsgField.F64ARRAY:
                double[] f64 = (double[]) value;
                out.beginNumbers(type, f64.length);
                out.numbers(f64.length, 8).asDoubleBuffer().put(f64);
                break;
            case QuorlMsgField.STRINGARRAY:
                out.texts(encoded(Arrays.asList((String[]) value)));
                break;
            default:
                out.bytes((byte[]) value);
        }
    }

    private static byte[][] encoded(List<?> texts) {
        byte[][] encoded = new byte[texts.size()][];
        for (int i = 0; i < encoded.length; i++) {
            Object text = element(texts, i);
            encoded[i] = Texts.encode(text instanceof Enum ? ((Enum<?>) text).name() : (String) text, "element " + i);
        }
        return encoded;
    }

    private static Object element(List<?> list, int i) {
        Object element = list.get(i);
        if (element == null) {
            throw new NullPointerException("element " + i + " is null");
        }
        return element;
    }

    // ---- classes ------------------------------------------------------------------------------------------------------

    private static Codec plain(Class<?> type) {
        Integer known = WHOLE.get(type);
        if (known != null) {
            return whole(known, known);
        }
        known = ARRAYS.get(type);
        if (known != null) {
            return array(type, known);
        }
        if (type == boolean.class || type == Boolean.class) {
            return new Codec(QuorlMsgField.BOOL, (out, value) -> out.put8((Boolean) value ? 1 : 0), ImageValues::bool);
        }
        if (type == float.class || type == Float.class) {
            return new Codec(QuorlMsgField.F32, (out, value) -> out.put32(Float.floatToRawIntBits((Float) value)),
                    ImageValues::f32);
        }
        if (type == double.class || type == Double.class) {
            return new Codec(QuorlMsgField.F64, (out, value) -> out.put64(Double.doubleToRawLongBits((Double) value)),
                    ImageValues::f64);
        }
        if (type == BigInteger.class) {
            return new Codec(QuorlMsgField.U64, (out, value) -> out.put64(bits((BigInteger) value)), Codec::bigInteger);
        }
        if (type == String.class) {
            return new Codec(QuorlMsgField.STRING, (out, value) -> out.text(Texts.encode((String) value, "the text")),
                    ImageValues::string);
        }
        if (type == Instant.class) {
            return new Codec(QuorlMsgField.DATETIME, (out, value) -> {
                out.put64(((Instant) value).getEpochSecond());
                out.put32(((Instant) value).getNano());
            }, ImageValues::dateTime);
        }
        if (type == Inet4Address.class) {
            return new Codec(QuorlMsgField.IPADDR32, (out, value) -> out.put(((Inet4Address) value).getAddress(), 4),
                    ImageValues::ipAddr32);
        }
        if (type == QuorlMsgView.class) {
            return new Codec(QuorlMsgField.MSG, (out, value) -> out.message(ApiAccess.image((QuorlMsgView) value)),
                    (image, field) -> ImageValues.msg(image, field).copy());
        }
        if (type.isEnum()) {
            return enumeration(type);
        }
        if (type.isRecord()) {
            // The plan is looked up when it is used: a record may hold records of its own class.
            return new Codec(QuorlMsgField.MSG, (out, value) -> {
                out.beginMessage();
                RecordPlan.of(type).write(out, value);
                out.endMessage();
            }, (image, field) -> RecordPlan.of(type).read(ImageValues.image(image, field)));
        }
        throw none(type);
    }

    private static long bits(BigInteger value) {
        if (value.signum() < 0 || value.compareTo(U64_MAX) > 0) {
            throw new IllegalArgumentException(value + " does not fit U64, 0 to " + U64_MAX);
        }
        return value.longValue();
    }

    private static Object bigInteger(MessageImage image, int field) {
        return image.type(field) == QuorlMsgField.U64 ? ImageValues.unsigned(ImageValues.u64(image, field))
                : BigInteger.valueOf(ImageValues.i64(image, field));
    }

    private static Codec enumeration(Class<?> type) {
        Object[] constants = type.getEnumConstants();
        return new Codec(QuorlMsgField.STRING, (out, value) -> out.text(Texts.encode(((Enum<?>) value).name(), "the name")),
                (image, field) -> constant(constants, type, ImageValues.string(image, field), image, field));
    }

    private static Object constant(Object[] constants, Class<?> type, String name, MessageImage image, int field) {
        for (Object constant : constants) {
            if (((Enum<?>) constant).name().equals(name)) {
                return constant;
            }
        }
        throw ApiAccess.failure(QuorlException.CONVERSION_FAILED, image.describe(field) + ": "
                + QuorlMsgField.typeName(image.type(field)) + " \"" + name + "\" is not a constant of " + type.getSimpleName());
    }

    // ---- lists --------------------------------------------------------------------------------------------------------

    private static Codec list(Type elementType, int fieldType) {
        if (!(elementType instanceof Class)) {
            throw none(elementType);
        }
        Class<?> element = (Class<?>) elementType;
        if (element == String.class || element.isEnum()) {
            Object[] constants = element.getEnumConstants();
            return new Codec(QuorlMsgField.STRINGARRAY, (out, value) -> out.texts(encoded((List<?>) value)),
                    (image, field) -> {
                        String[] texts = ImageValues.stringArray(image, field);
                        Object[] values = constants == null ? texts : new Object[texts.length];
                        for (int i = 0; i < values.length && constants != null; i++) {
                            values[i] = constant(constants, element, texts[i], image, field);
                        }
                        return unmodifiable(values);
                    });
        }
        if (element.isRecord() || element == QuorlMsgView.class) {
            return new Codec(QuorlMsgField.MSGARRAY, (out, value) -> writeMessages(out, (List<?>) value), (image, field) -> {
                List<Object> values = new ArrayList<>();
                for (QuorlMsgView view : ImageValues.msgArray(image, field)) {
                    values.add(element.isRecord() ? RecordPlan.of(element).read(ApiAccess.image(view)) : view.copy());
                }
                return Collections.unmodifiableList(values);
            });
        }
        Class<?> array = element == Byte.class ? byte[].class : element == Short.class ? short[].class
                : element == Integer.class ? int[].class : element == Long.class ? long[].class
                : element == Float.class ? float[].class : element == Double.class ? double[].class : null;
        if (array == null) {
            throw new IllegalArgumentException("no field holds a list of " + element.getTypeName());
        }
        Codec numbers = array == byte[].class ? array(array, QuorlMsgField.I8ARRAY) : of(array, fieldType);
        return new Codec(numbers.type, (out, value) -> numbers.writer.write(out, unboxed(array, (List<?>) value)),
                (image, field) -> boxed(numbers.read(image, field)));
    }

    private static List<Object> unmodifiable(Object[] values) {
        return Collections.unmodifiableList(Arrays.asList(values));
    }

    private static void writeMessages(ImageWriter out, List<?> values) {
        out.beginMessages(values.size());
        for (int i = 0; i < values.size(); i++) {
            Object value = element(values, i);
            if (value instanceof QuorlMsgView) {
                out.message(ApiAccess.image((QuorlMsgView) value));
            } else {
                out.beginMessage();
                RecordPlan.of(value.getClass()).write(out, value);
                out.endMessage();
            }
        }
    }

    private static Object unboxed(Class<?> array, List<?> list) {
        int length = list.size();
        Object values = java.lang.reflect.Array.newInstance(array.getComponentType(), length);
        for (int i = 0; i < length; i++) {
            java.lang.reflect.Array.set(values, i, element(list, i));
        }
        return values;
    }

    private static List<Object> boxed(Object array) {
        Object[] values = new Object[java.lang.reflect.Array.getLength(array)];
        for (int i = 0; i < values.length; i++) {
            values[i] = java.lang.reflect.Array.get(array, i);
        }
        return unmodifiable(values);
    }

    /** What an Optional is of; null for any other type. */
    static Type optional(Type type) {
        return type instanceof ParameterizedType && ((ParameterizedType) type).getRawType() == Optional.class
                ? ((ParameterizedType) type).getActualTypeArguments()[0] : null;
    }
}
