package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.vesma.quorl.internal.image.ImageWriter;
import java.net.Inet4Address;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.function.BiConsumer;
import java.util.function.Consumer;
import org.junit.jupiter.api.DynamicTest;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.TestFactory;
import org.junit.jupiter.api.condition.EnabledIfSystemProperty;

/**
 * What a message refuses: the text names the field, what was found and what was asked for, and the message stays as it was.
 */
class MessageBadInputTest {
    /** Fields: n, I32, id 7; s, STRING; half, F64; a, I32ARRAY; u, USER200; m, MSG; 8 without a name, U64 of all ones. */
    private static QuorlMsg message() {
        try (QuorlMsg inner = new QuorlMsg().addString("country", "FI")) {
            return new QuorlMsg().addI32("n", 7, 70_000).addString("s", "text").addF64("half", 0.5)
                    .addI32Array("a", new int[] {1, 2}).addUser("u", 200, new byte[1]).addMsg("m", inner).addU64(null, 8, -1);
        }
    }

    private static final class Case {
        final String name;
        final Class<? extends Exception> type;
        final int status;
        final String text;
        final Consumer<QuorlMsg> call;

        Case(String name, Class<? extends Exception> type, int status, String text, Consumer<QuorlMsg> call) {
            this.name = name;
            this.type = type;
            this.status = status;
            this.text = text;
            this.call = call;
        }
    }

    private final List<Case> cases = new ArrayList<>();

    private void refused(int status, String text, Consumer<QuorlMsg> call) {
        cases.add(new Case(text, QuorlException.class, status, text, call));
    }

    private void argument(String text, Consumer<QuorlMsg> call) {
        cases.add(new Case(text, IllegalArgumentException.class, 0, text, call));
    }

    private void missingValue(String text, Consumer<QuorlMsg> call) {
        cases.add(new Case(text, NullPointerException.class, 0, text, call));
    }

    @TestFactory
    List<DynamicTest> refusals() {
        wrongType();
        missingField();
        outOfRange();
        duplicateId();
        nulls();
        positions();
        typeCodes();
        names();
        texts();
        nesting();
        List<DynamicTest> tests = new ArrayList<>();
        for (Case each : cases) {
            tests.add(DynamicTest.dynamicTest(each.name, () -> check(each)));
        }
        return tests;
    }

    private static void check(Case expected) {
        try (QuorlMsg message = message()) {
            byte[] before = message.toBytes();
            Exception e = assertThrows(expected.type, () -> expected.call.accept(message));
            assertTrue(e.getMessage().endsWith(expected.text), e.getMessage());
            if (e instanceof QuorlException) {
                assertEquals(expected.status, ((QuorlException) e).getStatus(), e.getMessage());
            }
            assertArrayEquals(before, message.toBytes(), "a refused call has changed nothing");
            message.addI32("still", 1);
        }
    }

    private void wrongType() {
        int conversion = QuorlException.CONVERSION_FAILED;
        refused(conversion, ": field \"s\": it is STRING, not I32", m -> m.getI32("s"));
        refused(conversion, ": field id 7: it is I32, not STRING", m -> m.getString(7));
        refused(conversion, ": field \"a\": it is I32ARRAY, not I64ARRAY", m -> m.getI64Array("a"));
        refused(conversion, ": field \"n\": it is I32, not DATETIME", m -> m.getDateTime("n"));
        refused(conversion, ": field \"n\": it is I32, not a user type", m -> m.getUser("n"));
        refused(conversion, ": field \"u\": it is USER200, not OPAQUE", m -> m.getOpaque("u"));
        refused(conversion, ": field \"s\": it is STRING, not I32", m -> m.get("s", int.class));
        refused(conversion, ": field \"s\": it is STRING, not I32", m -> m.view().getI32("s"));
        refused(conversion, ": field \"n\" id 7: it is I32, not MSG", m -> m.view().getMsg(7));
        int type = QuorlException.INVALID_TYPE;
        refused(type, ": field \"n\": it is I32, not STRING", m -> m.updateString("n", "x"));
        refused(type, ": field \"n\" id 7: it is I32, not I64", m -> m.updateI64("n", 7, 1));
        refused(type, ": field \"s\": it is STRING, not F64ARRAY", m -> m.updateF64Array("s", new double[1]));
        refused(type, ": field \"u\": it is USER200, not USER201", m -> m.updateUser("u", 201, new byte[1]));
        refused(type, ": field \"s\": it is STRING, not MSG", m -> m.updateMsg("s", m));
        refused(type, ": field \"s\": it is STRING, not MSGARRAY", m -> m.updateMsgArray("s", List.of(m)));
    }

    private void missingField() {
        int missing = QuorlException.NOT_FOUND;
        refused(missing, ": field \"none\" of type I32", m -> m.getI32("none"));
        refused(missing, ": field id 99 of type U64", m -> m.getU64(99));
        refused(missing, ": field \"none\" of type STRING", m -> m.getString("none"));
        refused(missing, ": field \"none\" of type F64ARRAY", m -> m.getF64Array("none"));
        refused(missing, ": field \"none\" of type a user type", m -> m.getUser("none"));
        refused(missing, ": field \"none\" of type MSGARRAY", m -> m.view().getMsgArray("none"));
        refused(missing, ": field id 99 of type BOOL", m -> m.view().getBool(99));
        refused(missing, ": field \"none\" of type Instant", m -> m.get("none", Instant.class));
    }

    private void outOfRange() {
        argument("field \"x\": 256 does not fit U8, 0 to 255", m -> m.addU8("x", 256));
        argument("field \"x\" id 5: -1 does not fit U8, 0 to 255", m -> m.updateU8("x", 5, -1));
        argument("field id 5: 65536 does not fit U16, 0 to 65535", m -> m.addU16(null, 5, 65_536));
        argument("field \"x\": 4294967296 does not fit U32, 0 to 4294967295", m -> m.addU32("x", 1L << 32));
        argument("field \"x\": -1 does not fit U32, 0 to 4294967295", m -> m.updateU32("x", -1));
        argument("field \"x\": 65536 does not fit IPPORT16, 0 to 65535", m -> m.addIPPort16("x", 65_536));
        argument("field \"x\": element 1: 256 does not fit U8, 0 to 255", m -> m.addU8Array("x", new short[] {0, 256}));
        argument("field \"x\": element 0: -1 does not fit U16, 0 to 65535", m -> m.updateU16Array("x", new int[] {-1}));
        argument("field \"x\": element 2: -1 does not fit U32, 0 to 4294967295", m -> m.addU32Array("x", new long[] {0, 1, -1}));
        int conversion = QuorlException.CONVERSION_FAILED;
        refused(conversion, ": field \"n\": I32 70000 does not fit U16", m -> m.getU16("n"));
        refused(conversion, ": field \"half\": F64 0.5 does not fit I64", m -> m.getI64("half"));
        refused(conversion, ": field id 8: U64 18446744073709551615 does not fit I64", m -> m.getI64(8));
        refused(conversion, ": field \"n\" id 7: I32 70000 does not fit U16", m -> m.view().getU16("n"));
        refused(conversion, ": field id 8: U64 18446744073709551615 does not fit F64", m -> m.view().getF64(8));
    }

    private void duplicateId() {
        refused(QuorlException.ID_IN_USE, ": field id 7: STRING \"x\" has the id of field number 0, I32", m -> m.addString("x", 7, "y"));
        refused(QuorlException.ID_IN_USE, ": field id 7: I32 without a name has the id of field number 0, I32", m -> m.addI32(null, 7, 1));
        refused(QuorlException.ID_CONFLICT, ": field \"s\" id 7", m -> m.updateI32("s", 7, 1));
        argument("a field's id is 1 to 65535, or 0 for none, not 65536", m -> m.addI32("x", 65_536, 1));
        argument("a field's id is 1 to 65535, or 0 for none, not -1", m -> m.updateString("x", -1, "y"));
        argument("a field's id is 1 to 65535, not 0", m -> m.getI32(0));
    }

    private void nulls() {
        BiConsumer<String, Consumer<QuorlMsg>> ofX = (type, call) -> missingValue("field \"x\": its " + type + " is null", call);
        ofX.accept("STRING", m -> m.addString("x", null));
        ofX.accept("DATETIME", m -> m.updateDateTime("x", null));
        ofX.accept("IPADDR32", m -> m.addIPAddr32("x", (Inet4Address) null));
        ofX.accept("MSG", m -> m.addMsg("x", null));
        ofX.accept("OPAQUE", m -> m.addOpaque("x", null));
        ofX.accept("XML", m -> m.updateXml("x", null));
        ofX.accept("USER200", m -> m.addUser("x", 200, null));
        ofX.accept("I8ARRAY", m -> m.addI8Array("x", null));
        ofX.accept("U8ARRAY", m -> m.updateU8Array("x", null));
        ofX.accept("I16ARRAY", m -> m.addI16Array("x", null));
        ofX.accept("U16ARRAY", m -> m.addU16Array("x", null));
        ofX.accept("I32ARRAY", m -> m.updateI32Array("x", null));
        ofX.accept("U32ARRAY", m -> m.addU32Array("x", null));
        ofX.accept("I64ARRAY", m -> m.addI64Array("x", null));
        ofX.accept("U64ARRAY", m -> m.addU64Array("x", null));
        ofX.accept("F32ARRAY", m -> m.addF32Array("x", null));
        ofX.accept("F64ARRAY", m -> m.updateF64Array("x", null));
        ofX.accept("STRINGARRAY", m -> m.addStringArray("x", null));
        ofX.accept("MSGARRAY", m -> m.addMsgArray("x", null));
        missingValue("field \"x\": element 1 is null", m -> m.addStringArray("x", new String[] {"a", null}));
        missingValue("field \"x\" id 5: element 0 is null", m -> m.updateMsgArray("x", 5, Arrays.asList((QuorlMsg) null)));
        missingValue("name", m -> m.getI32((String) null));
        int argument = QuorlException.INVALID_ARG;
        refused(argument, ": field \"x\": an array of no texts", m -> m.addStringArray("x", new String[0]));
        refused(argument, ": field \"x\": an array of no messages", m -> m.updateMsgArray("x", List.of()));
    }

    private void positions() {
        for (int index : new int[] {7, -1, 65_536, Integer.MAX_VALUE}) {
            String text = "Index " + index + " out of bounds for length 7";
            cases.add(new Case(text, IndexOutOfBoundsException.class, 0, text, m -> m.getFieldAt(index)));
            cases.add(new Case(text + " of a view", IndexOutOfBoundsException.class, 0, text, m -> m.view().getFieldAt(index)));
        }
    }

    private void typeCodes() {
        for (int type : new int[] {127, 256, 0, -1, 0x1FF}) {
            argument("field \"x\": " + type + " does not fit a user type, 128 to 255", m -> m.addUser("x", type, new byte[1]));
        }
        refused(QuorlException.INVALID_TYPE, ": member \"x:user127\": it is not called name:type, with a type like i32, f64[] or string",
                m -> QuorlMsg.fromJson("{\"x:user127\":\"\"}"));
    }

    private void names() {
        String longName = "n".repeat(128);
        int name = QuorlException.INVALID_NAME;
        refused(name, ": field \"" + "n".repeat(127) + "...\" of 128 characters", m -> m.addI32(longName, 1));
        refused(name, ": field \"" + "n".repeat(127) + "...\" of 100000 characters", m -> m.addOpaque("n".repeat(100_000), new byte[1]));
        refused(name, ": field \"" + "n".repeat(127) + "...\" of 128 characters", m -> m.view().getI32(longName));
        String zero = "field \"a\\u0000b\": the name has a zero character at index 1, where the library would end it";
        argument(zero, m -> m.addI32("a\0b", 1));
        argument(zero, m -> m.getString("a\0b"));
        argument(zero, m -> m.has("a\0b"));
        argument(zero, m -> m.view().getF64("a\0b"));
        argument("field \"\\ud83d!\": the name has half a surrogate pair at index 0", m -> m.updateBool("\ud83d!", true));
        argument("field \"!\\ude00\": the name has half a surrogate pair at index 1", m -> m.remove("!\ude00"));
        refused(QuorlException.CONVERSION_FAILED, ": field \"\\ud83d\": the name has half a surrogate pair at index 0",
                m -> QuorlMsg.fromJson("{\"\ud83d:i32\":1}"));
    }

    private void texts() {
        argument("field \"x\": the text has a zero character at index 1, where the library would end it", m -> m.addString("x", "a\0"));
        argument("field \"s\": the text has half a surrogate pair at index 2", m -> m.updateString("s", "a\u00e9\ud83d"));
        argument("field \"x\": element 1: the text has half a surrogate pair at index 0",
                m -> m.addStringArray("x", new String[] {"a", "\ude00\ud83d"}));
    }

    private void nesting() {
        int invalid = QuorlException.INVALID_MSG;
        String text = ": messages would be nested to more than 64 levels";
        refused(invalid, ": field \"x\"" + text, m -> {
            try (QuorlMsg deep = nested(64)) {
                m.addMsg("x", deep);
            }
        });
        refused(invalid, ": field \"x\" id 5" + text, m -> {
            try (QuorlMsg flat = new QuorlMsg(); QuorlMsg deep = nested(64)) {
                m.updateMsgArray("x", 5, List.of(flat, deep));
            }
        });
        refused(invalid, "the message inside another has ended, since that was changed; get it again", m -> {
            try (QuorlMsg other = message()) {
                QuorlMsg inside = other.getMsg("m");
                other.reset();
                m.addMsg("x", inside);
            }
        });
    }

    /** With as many levels of messages inside. */
    private static QuorlMsg nested(int levels) {
        return QuorlMsg.fromJson("{\"m:msg\":".repeat(levels) + "{}" + "}".repeat(levels));
    }

    @Test
    void sixtyFourLevelsAreTaken() {
        try (QuorlMsg deep = nested(63); QuorlMsg outer = new QuorlMsg().addMsg("m", deep)) {
            assertEquals(64, outer.view().image().depth());
        }
    }

    @Test
    void theFieldsBeyond65536AreReadByAView() {
        try (QuorlMsg message = new QuorlMsg()) {
            for (int i = 0; i < 65_536; i++) {
                message.addBool(null, true);
            }
            message.addString("last", "text");
            QuorlException e = assertThrows(QuorlException.class, () -> message.getString("last"));
            assertEquals(QuorlException.INVALID_FIELD, e.getStatus());
            assertTrue(e.getMessage().endsWith(
                    ": field \"last\": it is field number 65536 of its message, and only the first 65,536 can be read"), e.getMessage());
            assertThrows(IndexOutOfBoundsException.class, () -> message.getFieldAt(65_536));
            assertEquals("text", message.view().getString("last"));
            assertEquals("text", message.view().getFieldAt(65_536).getValue());
        }
    }

    @Test
    void sizesBeyondOneGibAreRefusedBeforeAnythingIsCopied() {
        int beyond = (1 << 30) + 1;
        try (QuorlMsg message = message()) {
            byte[] name = {'x'};
            byte[] few = new byte[8];
            QuorlMsgTest.assertStatus(QuorlException.INVALID_SIZE, () -> QuorlMsg.quorlMsg_AddOpaque(
                    message.ownHandle(), name, 1, few, beyond, (short) 0, null));
            QuorlMsgTest.assertStatus(QuorlException.INVALID_SIZE, () -> QuorlMsg.quorlMsg_AddI64Array(
                    message.ownHandle(), name, 1, new long[1], beyond / 8, (short) 0, null));
            assertEquals(7, message.getFieldCount());
        }
        ImageWriter out = new ImageWriter();
        out.head(QuorlMsgField.I64ARRAY, null, 0);
        QuorlException e = assertThrows(QuorlException.class, () -> out.numbers(beyond / 8, 8));
        assertEquals(QuorlException.INVALID_SIZE, e.getStatus());
        assertTrue(e.getMessage().endsWith("the message would be larger than 1073741824 bytes"), e.getMessage());
    }

    /** Takes gigabytes: -Dquorl.large=true. */
    @Test
    @EnabledIfSystemProperty(named = "quorl.large", matches = "true")
    void aMessageDoesNotGrowBeyondOneGib() {
        try (QuorlMsg message = new QuorlMsg()) {
            byte[] part = new byte[1 << 26];
            for (int i = 0; i < 15; i++) {
                message.addOpaque("part", part);
            }
            QuorlException e = assertThrows(QuorlException.class, () -> message.addOpaque("part", part));
            assertEquals(QuorlException.INVALID_SIZE, e.getStatus());
            assertTrue(e.getMessage().endsWith(": field \"part\": with this OPAQUE the message would be larger than 1073741824 bytes"),
                    e.getMessage());
            assertEquals(15, message.getFieldCount());
        }
    }
}
