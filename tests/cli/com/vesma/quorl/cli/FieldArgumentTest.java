package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;

import java.net.Inet4Address;
import java.time.Instant;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.ValueSource;

class FieldArgumentTest {
    private static Object value(String argument) {
        return FieldArgument.parse(argument).value();
    }

    private static String error(String argument) {
        return assertThrows(IllegalArgumentException.class, () -> value(argument)).getMessage();
    }

    @Test
    void theNameEndsAtTheLastColonBeforeTheFirstEqualsSign() {
        assertEquals(field("a", "string", 0, "b:i32=c"), FieldArgument.parse("a:string=b:i32=c"));
        assertEquals(field("urn:x", "i8", 0, "1"), FieldArgument.parse("urn:x:i8=1"));
        assertEquals(field("", "string", 0, ""), FieldArgument.parse(":string="));
        assertEquals(field("a", "user200", 7, "00"), FieldArgument.parse("a:user200#7=00"));
        assertEquals(field(null, "i32", 65535, "1"), FieldArgument.parse("i32#65535=1"));
    }

    private static FieldArgument field(String name, String type, int id, String text) {
        return new FieldArgument(new FieldHead(name, FieldType.named(type), id), text);
    }

    @Test
    void eachTypeGivesItsJavaValue() {
        assertEquals(true, value("x:bool=true"));
        assertEquals(false, value("x:bool=0"));
        assertEquals((byte) -128, value("x:i8=-128"));
        assertEquals(255, value("x:u8=255"));
        assertEquals((short) -32768, value("x:i16=-32768"));
        assertEquals(65535, value("x:u16=0xffff"));
        assertEquals(-2147483648, value("x:i32=-2147483648"));
        assertEquals(4294967295L, value("x:u32=4294967295"));
        assertEquals(Long.MIN_VALUE, value("x:i64=-9223372036854775808"));
        assertEquals(-1L, value("x:u64=18446744073709551615"));
        assertEquals(0.1f, value("x:f32=0.1"));
        assertEquals(-2.5e-3, value("x:f64=-2.5e-3"));
        assertEquals(Double.NaN, value("x:f64=NaN"));
        assertEquals(Float.NEGATIVE_INFINITY, value("x:f32=-Infinity"));
        assertEquals("größer: 😀", value("x:string=größer: 😀"));
        assertArrayEquals(new byte[] {0, (byte) 0xca, (byte) 0xfe}, (byte[]) value("x:opaque=00CAfe"));
        assertArrayEquals(new byte[0], (byte[]) value("x:opaque="));
        assertArrayEquals(new byte[] {'<', 'a', '/', '>'}, (byte[]) value("x:xml=<a/>"));
        assertEquals(Instant.parse("2026-07-01T12:30:00.25Z"), value("x:datetime=2026-07-01T14:30:00.25+02:00"));
        assertEquals("/192.168.1.20", ((Inet4Address) value("x:ipaddr32=192.168.1.20")).toString());
        assertEquals(65535, value("x:ipport16=65535"));
    }

    @ParameterizedTest
    @CsvSource({"i8, 128, -128, 127", "i8, -129, -128, 127", "u8, 256, 0, 255", "u8, -1, 0, 255",
            "i16, 32768, -32768, 32767", "u16, 65536, 0, 65535", "i32, 2147483648, -2147483648, 2147483647",
            "u32, 4294967296, 0, 4294967295", "i64, 9223372036854775808, -9223372036854775808, 9223372036854775807",
            "u64, 18446744073709551616, 0, 18446744073709551615", "u64, 1.5, 0, 18446744073709551615",
            "i32, '', -2147483648, 2147483647", "i32, 1e3, -2147483648, 2147483647", "ipport16, 65536, 0, 65535"})
    void aNumberOutOfRangeNamesFieldTypeAndValue(String type, String text, String least, String most) {
        assertEquals("field \"speed\": type " + type + " takes a whole number from " + least + " to " + most + ", not \""
                + text + "\"", error("speed:" + type + "=" + text));
    }

    @ParameterizedTest
    @ValueSource(strings = {"x:bool=yes", "x:f64=1d", "x:f64=1e999", "x:f32=1e39", "x:f64=", "x:f64=0x1p3", "x:opaque=abc",
            "x:opaque=zz", "x:datetime=yesterday", "x:datetime=2026-07-01", "x:ipaddr32=1.2.3", "x:ipaddr32=1.2.3.256",
            "x:ipaddr32=1.2.3.-4", "x:f64=NaN(0)", "x:f32=NaN(7ff8000000000000)", "x:xml=base64:?", "x:string=\0",
            "x:user128=0", "x:datetime=@9223372036854775807.000000000"})
    void aBadValueNamesFieldTypeAndValue(String argument) {
        FieldArgument field = FieldArgument.parse(argument);
        String message = error(argument);
        assertEquals("field \"x\": type " + field.type().label() + " takes ", message.substring(0, message.indexOf("takes") + 6));
        assertEquals(", not " + Texts.quoted(field.text()), message.substring(message.lastIndexOf(", not")));
    }

    @Test
    void aFieldThatIsNoFieldSaysHowToWriteOne() {
        assertEquals("field \"speed\" has no value; write name:type=value", error("speed"));
        assertEquals("field \"speed\" has no type; write name:type=value, with a type of " + FieldType.all(),
                error("speed=3"));
        assertEquals("field \"speed\": unknown type \"int\"; the types are " + FieldType.all(), error("speed:int=3"));
        assertEquals("field \"" + "n".repeat(128) + "\": the name has 128 bytes; at most 127 are allowed",
                error("n".repeat(128) + ":i8=1"));
    }

    @Test
    void anIdIsANumber() {
        for (String id : new String[] {"", "0", "65536", "x", "-1", "123456"}) {
            assertEquals("field \"x\": an id is a number from 1 to 65535, not \"" + id + "\"", error("x:i8#" + id + "=1"));
        }
    }

    @Test
    void whatIsRepeatedStaysOnOneLineAndEnds() {
        assertEquals("\"a\\u000ab\"", Texts.quoted("a\nb"));
        assertEquals('"' + "x".repeat(200) + "...\"", Texts.quoted("x".repeat(1000)));
    }

    @Test
    void aNumberTakesThePlaceholdersPlace() {
        assertEquals("7 of 7", FieldArgument.parse("x:string={n} of {n}").numbered(7).value());
        assertEquals(7, FieldArgument.parse("x:i32={n}").numbered(7).value());
    }
}
