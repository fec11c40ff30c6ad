package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.vesma.quorl.internal.image.Wire;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;
import java.util.List;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Nested;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;

/**
 * The natives of messages at the edges of what they take, from Java through the bridge into the engine and back. The classes
 * over them keep most of this from happening; here nothing does.
 */
class MessageNativesTest {
    private static final short NO_ID = 0;
    private static final byte[] NAME = bytes("x");

    private QuorlMsg message;
    private long m;

    @BeforeEach
    void makeMessage() {
        message = new QuorlMsg();
        m = message.ownHandle();
    }

    @AfterEach
    void closeMessage() {
        message.close();
    }

    private static byte[] bytes(String text) {
        return text.getBytes(StandardCharsets.UTF_8);
    }

    private static void assertStatus(int status, Executable call) {
        QuorlMsgTest.assertStatus(status, call);
    }

    private int count() {
        return QuorlMsg.quorlMsg_GetNumFields(m, null);
    }

    /** Adds the field that a later call is to meet. */
    private int added(Runnable add) {
        add.run();
        return count() - 1;
    }

    // ---- whole messages -----------------------------------------------------------------------------------------------

    @Nested
    class WholeMessages {
        @Test
        void aSubjectOfLengthMinusOneTakesTheSubjectAway() {
            byte[] subject = bytes("plant.line");
            QuorlMsg.quorlMsg_SetSendSubject(m, subject, subject.length, null);
            QuorlMsg.quorlMsg_SetReplySubject(m, subject, subject.length, null);
            QuorlMsg.quorlMsg_SetSendSubject(m, subject, -1, null);
            QuorlMsg.quorlMsg_SetReplySubject(m, subject, -1, null);
            assertNull(QuorlMsg.quorlMsg_GetSendSubjectUTF8(m, null));
            assertNull(QuorlMsg.quorlMsg_GetReplySubjectUTF8(m, null));
        }

        @Test
        void aSubjectOfLengthZeroIsTheEmptySubjectWhichIsNone() {
            byte[] subject = bytes("plant.line");
            QuorlMsg.quorlMsg_SetSendSubject(m, subject, subject.length, null);
            assertStatus(QuorlException.INVALID_SUBJECT, () -> QuorlMsg.quorlMsg_SetSendSubject(m, subject, 0, null));
            assertStatus(QuorlException.INVALID_SUBJECT, () -> QuorlMsg.quorlMsg_SetReplySubject(m, subject, 0, null));
            assertEquals("plant.line", QuorlMsg.quorlMsg_GetSendSubjectUTF8(m, null), "what was set stays");
        }

        @Test
        void aSubjectIsNotWrittenIntoAnArrayThatIsTooShort() {
            byte[] subject = bytes("plant.line");
            QuorlMsg.quorlMsg_SetSendSubject(m, subject, subject.length, null);
            QuorlMsg.quorlMsg_SetReplySubject(m, subject, subject.length, null);
            byte[] tooShort = new byte[subject.length - 1];
            assertThrows(ArrayIndexOutOfBoundsException.class, () -> QuorlMsg.quorlMsg_GetSendSubject(m, tooShort, null));
            assertThrows(ArrayIndexOutOfBoundsException.class, () -> QuorlMsg.quorlMsg_GetReplySubject(m, tooShort, null));
            assertArrayEquals(new byte[tooShort.length], tooShort);
            byte[] fits = new byte[subject.length];
            assertEquals(fits.length, QuorlMsg.quorlMsg_GetSendSubject(m, fits, null));
            assertArrayEquals(subject, fits);
        }

        @Test
        void theBufferOfAMessageWithoutFieldsHoldsItsHeader() {
            ByteBuffer window = (ByteBuffer) QuorlMsgView.quorlMsg_GetByteBuffer(m, null);
            assertTrue(window.isDirect());
            assertEquals(Wire.HEADER, window.capacity());
            assertEquals(Wire.HEADER, window.order(ByteOrder.LITTLE_ENDIAN).getInt(Wire.SIZE_AT));
        }

        @Test
        void theBufferIsTheMessageItself() {
            message.addString("s", "text");
            ByteBuffer window = (ByteBuffer) QuorlMsgView.quorlMsg_GetByteBuffer(m, null);
            byte[] seen = new byte[window.remaining()];
            window.get(seen);
            assertArrayEquals(message.toBytes(), seen);
            assertEquals(message.getByteSize(), seen.length);
        }

        @Test
        void aMessageThatIsGoneIsNotCopied() {
            message.close();
            assertStatus(QuorlException.INVALID_MSG, () -> QuorlMsg.quorlMsg_CreateCopy(m, null));
            assertStatus(QuorlException.INVALID_MSG, () -> QuorlMsg.quorlMsg_GetEnvelope(m, null));
            assertStatus(QuorlException.INVALID_MSG, () -> QuorlMsgView.quorlMsg_GetByteBuffer(m, null));
        }

        @Test
        void thePrintedFormHasNoTerminator() {
            message.addI32("n", 5);
            assertArrayEquals(bytes("{n=5}"), QuorlMsg.quorlMsg_ConvertToString(m, null));
            message.reset();
            assertArrayEquals(bytes("{}"), QuorlMsg.quorlMsg_ConvertToString(m, null));
        }
    }

    // ---- names, ids, positions ----------------------------------------------------------------------------------------

    @Nested
    class Lookup {
        @Test
        void aNullNameLeavesTheFieldToTheIdAndItsLengthUnread() {
            message.addI32(null, 7, 1).addI32("x", 8, 2);
            for (int length : new int[] {0, 1, -1, 1_000_000, Integer.MIN_VALUE}) {
                long found = QuorlMsg.quorlMsg_GetFieldTypeAndIndex(m, null, length, (short) 7, null);
                assertEquals(0, FieldCalls.indexIn(found));
                assertEquals(2, QuorlMsg.quorlMsg_GetI32(m, null, length, (short) 8, null), "an id finds a field with a name");
            }
            assertTrue(QuorlMsg.quorlMsg_RemoveFieldEx(m, null, 99, (short) 7, null));
            assertEquals(1, count());
        }

        @Test
        void aNameOfLengthZeroIsTheEmptyNameAndNotNone() {
            message.addI32(null, 7, 1);
            QuorlMsg.quorlMsg_AddI32(m, NAME, 0, 2, NO_ID, null);
            assertArrayEquals(new byte[0], QuorlMsg.quorlMsg_GetFieldName(m, 1, null));
            assertEquals(1, FieldCalls.indexIn(QuorlMsg.quorlMsg_GetFieldTypeAndIndex(m, NAME, 0, NO_ID, null)));
            assertEquals(2, message.getI32(""));
        }

        @Test
        void aFieldThatIsNotThereIsZeroButAnInstanceThatIsNotThereIsRefused() {
            message.addI32("x", 1);
            byte[] other = bytes("y");
            assertEquals(0, QuorlMsg.quorlMsg_GetFieldTypeAndIndex(m, other, 1, NO_ID, null));
            assertEquals(0, QuorlMsg.quorlMsg_GetFieldTypeAndIndexUTF(m, "y", NO_ID, null));
            assertEquals(0, FieldCalls.indexIn(QuorlMsg.quorlMsg_GetFieldInstanceTypeAndIndex(m, 1, NAME, 1, null)));
            assertStatus(QuorlException.NOT_FOUND, () -> QuorlMsg.quorlMsg_GetFieldInstanceTypeAndIndex(m, 2, NAME, 1, null));
            assertStatus(QuorlException.NOT_FOUND, () -> QuorlMsg.quorlMsg_GetFieldInstanceTypeAndIndexUTF(m, 2, "x", null));
            assertStatus(QuorlException.NOT_FOUND, () -> QuorlMsg.quorlMsg_GetFieldInstanceTypeAndIndex(m, 1, other, 1, null));
            assertStatus(QuorlException.INVALID_INSTANCE,
                    () -> QuorlMsg.quorlMsg_GetFieldInstanceTypeAndIndex(m, 0, NAME, 1, null));
        }

        @Test
        void sizeCountAndTypeOfNothingAreZeroButIdAndNameAreRefused() {
            for (int index : new int[] {0, 1, 0xFFFF, 0x10000, -1}) {
                assertEquals(0, QuorlMsg.quorlMsg_GetFieldSize(m, index, null));
                assertEquals(0, QuorlMsg.quorlMsg_GetFieldCount(m, index, null));
                assertEquals(0, QuorlMsg.quorlMsg_GetFieldType(m, index, null));
                assertStatus(QuorlException.NOT_FOUND, () -> QuorlMsg.quorlMsg_GetFieldId(m, index, null));
                assertStatus(QuorlException.NOT_FOUND, () -> QuorlMsg.quorlMsg_GetFieldName(m, index, null));
            }
        }

        @Test
        void aFieldWithoutANameHasNullForItsName() {
            message.addI32(null, 7, 1).addI32(null, 2).addI32("", 3);
            assertNull(QuorlMsg.quorlMsg_GetFieldName(m, 0, null));
            assertNull(QuorlMsg.quorlMsg_GetFieldName(m, 1, null));
            assertEquals(0, QuorlMsg.quorlMsg_GetFieldName(m, 2, null).length);
        }

        @Test
        void typesAndIdsAreUnsigned() {
            QuorlMsg.quorlMsg_AddUserType(m, (short) 200, NAME, 1, new byte[1], 1, (short) 65535, null);
            assertEquals(200, QuorlMsg.quorlMsg_GetFieldType(m, 0, null));
            assertEquals(65535, QuorlMsg.quorlMsg_GetFieldId(m, 0, null));
            assertEquals(0, FieldCalls.indexIn(QuorlMsg.quorlMsg_GetFieldTypeAndIndex(m, null, 0, (short) 65535, null)));
        }

        @Test
        void removingAnInstanceThatIsNotThereIsFalse() {
            message.addI32("x", 1).addI32("x", 2);
            assertFalse(QuorlMsg.quorlMsg_RemoveFieldInstance(m, NAME, 1, 3, null));
            assertFalse(QuorlMsg.quorlMsg_RemoveFieldInstance(m, NAME, 1, 0, null));
            assertFalse(QuorlMsg.quorlMsg_RemoveFieldInstance(m, bytes("y"), 1, 1, null));
            assertFalse(QuorlMsg.quorlMsg_RemoveFieldInstance(0, NAME, 1, 1, null));
            assertTrue(QuorlMsg.quorlMsg_RemoveFieldInstance(m, NAME, 1, (1L << 32) + 2, null), "32 bits count");
            assertEquals("{x=1}", message.toString());
            assertFalse(QuorlMsg.quorlMsg_RemoveFieldEx(m, bytes("y"), 1, NO_ID, null));
        }
    }

    // ---- one value ----------------------------------------------------------------------------------------------------

    @Nested
    class Scalars {
        @Test
        void theGreatestUnsignedValuesComeBackInTheWiderType() {
            QuorlMsg.quorlMsg_AddU8(m, NAME, 1, (byte) -1, NO_ID, null);
            QuorlMsg.quorlMsg_AddU16(m, NAME, 1, (short) -1, NO_ID, null);
            QuorlMsg.quorlMsg_AddU32(m, NAME, 1, -1, NO_ID, null);
            QuorlMsg.quorlMsg_AddU64(m, NAME, 1, -1, NO_ID, null);
            assertEquals((short) 255, QuorlMsg.quorlMsg_GetU8(m, 0, null));
            assertEquals(65535, QuorlMsg.quorlMsg_GetU16(m, 1, null));
            assertEquals(4294967295L, QuorlMsg.quorlMsg_GetU32(m, 2, null));
            assertEquals(-1L, QuorlMsg.quorlMsg_GetU64(m, 3, null));
            assertEquals("{x=255, x=65535, x=4294967295, x=18446744073709551615}", message.toString());
        }

        @Test
        void addingAPortOrAddressTurnsItAndUpdatingDoesNot() {
            QuorlMsg.quorlMsg_AddIPPort16(m, NAME, 1, (short) 0x1234, NO_ID, null);
            QuorlMsg.quorlMsg_AddIPPort16UTF(m, "utf", (short) 0x1234, NO_ID, null);
            assertEquals(0x3412, QuorlMsg.quorlMsg_GetIPPort16(m, 0, null));
            assertEquals(0x3412, QuorlMsg.quorlMsg_GetIPPort16(m, 1, null));
            QuorlMsg.quorlMsg_UpdateIPPort16(m, NAME, 1, (short) 0x1234, NO_ID, null);
            QuorlMsg.quorlMsg_UpdateIPPort16UTF(m, "utf", (short) 0x1234, NO_ID, null);
            assertEquals(0x1234, QuorlMsg.quorlMsg_GetIPPort16(m, 0, null));
            assertEquals(0x1234, QuorlMsg.quorlMsg_GetIPPort16(m, 1, null));
            byte[] address = bytes("a");
            QuorlMsg.quorlMsg_AddIPAddr32(m, address, 1, 0x01020304, NO_ID, null);
            assertEquals(0x04030201, QuorlMsg.quorlMsg_GetIPAddr32(m, 2, null));
            assertEquals("1.2.3.4", message.getIPAddr32("a").getHostAddress());
            QuorlMsg.quorlMsg_UpdateIPAddr32(m, address, 1, 0x01020304, NO_ID, null);
            assertEquals(0x01020304, QuorlMsg.quorlMsg_GetIPAddr32(m, 2, null));
        }

        @Test
        void aTextReadAsANumberByPositionGivesSomeBitsAndNoRefusal() {
            message.addString("x", "text");
            int bits = QuorlMsg.quorlMsg_GetI32(m, 0, null);
            assertEquals(bits, QuorlMsg.quorlMsg_GetI32(m, 0, null), "the low half of where the text is");
            assertEquals(bits, (int) QuorlMsg.quorlMsg_GetI64(m, 0, null));
            assertStatus(QuorlException.CONVERSION_FAILED, () -> QuorlMsg.quorlMsg_GetI32(m, NAME, 1, NO_ID, null));
        }

        @Test
        void anEmptyTextCopiesNothing() {
            QuorlMsg.quorlMsg_AddString(m, NAME, 1, new byte[0], 0, NO_ID, null);
            byte[] untouched = {1, 2};
            QuorlMsg.quorlMsg_GetString(m, 0, untouched, null);
            QuorlMsg.quorlMsg_GetString(m, 0, new byte[0], null);
            assertArrayEquals(new byte[] {1, 2}, untouched);
            assertEquals(1, QuorlMsg.quorlMsg_GetFieldSize(m, 0, null), "its terminator");
            assertEquals("", QuorlMsg.quorlMsg_GetStringUTF8(m, 0, null));
        }

        @Test
        void aTextWithANullNameIsAFieldOfItsIdAlone() {
            byte[] text = bytes("value");
            QuorlMsg.quorlMsg_AddString(m, null, 0, text, text.length, (short) 9, null);
            assertNull(QuorlMsg.quorlMsg_GetFieldName(m, 0, null));
            assertEquals(9, QuorlMsg.quorlMsg_GetFieldId(m, 0, null));
            assertEquals("value", message.getString(9));
        }

        @Test
        void positionsCountBySixteenBits() {
            message.addI32("a", 1).addI32("b", 2);
            assertEquals(2, QuorlMsg.quorlMsg_GetI32(m, 0x10001, null));
            assertEquals(1, QuorlMsg.quorlMsg_GetI32(m, 0x7FFF_0000, null));
            assertStatus(QuorlException.NOT_FOUND, () -> QuorlMsg.quorlMsg_GetI32(m, 2, null));
            assertStatus(QuorlException.NOT_FOUND, () -> QuorlMsg.quorlMsg_GetI32(m, -1, null));
        }
    }

    // ---- arrays of numbers --------------------------------------------------------------------------------------------

    @Nested
    class NumericArrays {
        private int add(Object values, int length) {
            return added(() -> {
                if (values instanceof short[]) {
                    QuorlMsg.quorlMsg_AddU8Array(m, NAME, 1, (short[]) values, length, NO_ID, null);
                } else if (values instanceof int[]) {
                    QuorlMsg.quorlMsg_AddU16Array(m, NAME, 1, (int[]) values, length, NO_ID, null);
                } else {
                    QuorlMsg.quorlMsg_AddU32Array(m, NAME, 1, (long[]) values, length, NO_ID, null);
                }
            });
        }

        @Test
        void bytesAreNarrowedOnTheWayInAndWidenedOnTheWayOut() {
            short[] read = new short[4];
            QuorlMsg.quorlMsg_GetU8Array(m, add(new short[] {255, 256, -1, 0x1234}, 4), read, null);
            assertArrayEquals(new short[] {255, 0, 255, 0x34}, read);
            int[] words = new int[3];
            QuorlMsg.quorlMsg_GetU16Array(m, add(new int[] {65535, 65536, -1}, 3), words, null);
            assertArrayEquals(new int[] {65535, 0, 65535}, words);
        }

        @Test
        void wordsOf32BitsAreNarrowedOnTheWayInAndWidenedOnTheWayOut() {
            long[] read = new long[3];
            QuorlMsg.quorlMsg_GetU32Array(m, add(new long[] {4294967295L, -1, 1L << 32}, 3), read, null);
            assertArrayEquals(new long[] {4294967295L, 4294967295L, 0}, read);
        }

        @Test
        void wordsOf64BitsKeepTheirBits() {
            QuorlMsg.quorlMsg_AddU64Array(m, NAME, 1, new long[] {-1, Long.MIN_VALUE}, 2, NO_ID, null);
            long[] read = new long[2];
            QuorlMsg.quorlMsg_GetU64Array(m, 0, read, null);
            assertArrayEquals(new long[] {-1, Long.MIN_VALUE}, read);
            assertEquals("{x[2]={18446744073709551615, 9223372036854775808}}", message.toString());
        }

        @Test
        void updatingAnArrayOfDoublesAddsAnother() {
            QuorlMsg.quorlMsg_AddF64Array(m, NAME, 1, new double[] {1}, 1, NO_ID, null);
            QuorlMsg.quorlMsg_UpdateF64Array(m, NAME, 1, new double[] {2}, 1, NO_ID, null);
            assertEquals(2, message.getFields("x").size());
            QuorlMsg.quorlMsg_UpdateF64ArrayUTF(m, "x", new double[] {3}, 1, NO_ID, null);
            assertEquals("{x[1]={1}, x[1]={2}, x[1]={3}}", message.toString());
            QuorlMsg.quorlMsg_UpdateF32Array(m, bytes("f"), 1, new float[] {1}, 1, NO_ID, null);
            QuorlMsg.quorlMsg_UpdateF32Array(m, bytes("f"), 1, new float[] {2}, 1, NO_ID, null);
            assertEquals(1, message.getFields("f").size(), "of floats there is one");
        }

        @Test
        void positionsCountBySixteenBits() {
            message.addI32Array("a", new int[] {0}).addI32Array("b", new int[] {1}).addI32Array("c", new int[] {2})
                    .addI32Array("d", new int[] {3});
            int[] read = new int[1];
            QuorlMsg.quorlMsg_GetI32Array(m, 65536 + 3, read, null);
            assertEquals(3, read[0]);
        }

        @Test
        void aLengthOfZeroIsAnArrayOfNone() {
            QuorlMsg.quorlMsg_AddI32Array(m, NAME, 1, new int[3], 0, NO_ID, null);
            add(new short[3], 0);
            add(new int[0], 0);
            add(new long[1], 0);
            QuorlMsg.quorlMsg_UpdateF64Array(m, NAME, 1, new double[1], 0, NO_ID, null);
            assertEquals("{x[0]={}, x[0]={}, x[0]={}, x[0]={}, x[0]={}}", message.toString());
            for (int index = 0; index < 5; index++) {
                assertEquals(0, QuorlMsg.quorlMsg_GetFieldCount(m, index, null));
            }
            QuorlMsg.quorlMsg_GetI32Array(m, 0, new int[0], null);
            QuorlMsg.quorlMsg_GetU8Array(m, 1, new short[0], null);
        }

        @Test
        void aNullNameIsAnArrayOfItsIdAlone() {
            QuorlMsg.quorlMsg_AddI64Array(m, null, 1_000_000, new long[] {5}, 1, (short) 4, null);
            QuorlMsg.quorlMsg_AddU16Array(m, null, -7, new int[] {6}, 1, (short) 5, null);
            assertNull(QuorlMsg.quorlMsg_GetFieldName(m, 0, null));
            assertArrayEquals(new long[] {5}, message.getI64Array(4));
            assertArrayEquals(new int[] {6}, message.getU16Array(5));
        }

        @Test
        void anArrayIsNotWrittenIntoOneThatIsTooShort() {
            message.addI32Array("x", new int[] {1, 2, 3}).addU8Array("y", new short[] {1, 2, 3});
            int[] tooShort = new int[2];
            assertThrows(ArrayIndexOutOfBoundsException.class, () -> QuorlMsg.quorlMsg_GetI32Array(m, 0, tooShort, null));
            assertArrayEquals(new int[2], tooShort);
            assertThrows(ArrayIndexOutOfBoundsException.class, () -> QuorlMsg.quorlMsg_GetU8Array(m, 1, new short[2], null));
        }
    }

    // ---- arrays of texts and messages ---------------------------------------------------------------------------------

    @Nested
    class StringAndMessageArrays {
        @Test
        void anArrayOfNoTextsOrMessagesIsNotAdded() {
            Object[] none = {};
            assertStatus(QuorlException.INVALID_ARG, () -> QuorlMsg.quorlMsg_AddStringArray(m, NAME, 1, none, 0, NO_ID, null));
            assertStatus(QuorlException.INVALID_ARG, () -> QuorlMsg.quorlMsg_UpdateStringArray(m, NAME, 1, none, 0, NO_ID, null));
            assertStatus(QuorlException.INVALID_ARG, () -> QuorlMsg.quorlMsg_AddStringArrayUTF(m, "x", none, 0, NO_ID, null));
            assertStatus(QuorlException.INVALID_ARG, () -> QuorlMsg.quorlMsg_UpdateStringArrayUTF(m, "x", none, 0, NO_ID, null));
            assertStatus(QuorlException.INVALID_ARG, () -> QuorlMsg.quorlMsg_AddMsgArray(m, NAME, 1, new long[0], 0, NO_ID, null));
            assertStatus(QuorlException.INVALID_ARG,
                    () -> QuorlMsg.quorlMsg_UpdateMsgArrayUTF(m, "x", new long[0], 0, NO_ID, null));
            assertEquals(0, count());
        }

        @Test
        void aNullTextIsNotAdded() {
            Object[] texts = {bytes("a"), null};
            assertStatus(QuorlException.INVALID_ARG, () -> QuorlMsg.quorlMsg_AddStringArray(m, NAME, 1, texts, 2, NO_ID, null));
            assertStatus(QuorlException.INVALID_ARG, () -> QuorlMsg.quorlMsg_AddStringArrayUTF(m, "x", texts, 2, NO_ID, null));
            assertEquals(0, count());
        }

        @Test
        void anElementOfNoBytesIsTheEmptyTextAndAZeroByteEndsOne() {
            Object[] texts = {new byte[0], bytes("before\0behind"), bytes("\0"), bytes("last")};
            QuorlMsg.quorlMsg_AddStringArray(m, NAME, 1, texts, texts.length, NO_ID, null);
            Object[] read = QuorlMsg.quorlMsg_GetStringArray(m, 0, null);
            assertArrayEquals(new Object[] {new byte[0], bytes("before"), new byte[0], bytes("last")}, read);
            assertEquals(byte[][].class, read.getClass());
        }

        @Test
        void anArrayOfNoTextsIsReadAsOne() {
            record Texts(String[] texts) {}
            try (QuorlMsg none = QuorlMsg.of(new Texts(new String[0]))) {
                Object[] read = QuorlMsg.quorlMsg_GetStringArray(none.ownHandle(), 0, null);
                assertEquals(byte[][].class, read.getClass());
                assertEquals(0, read.length);
            }
        }

        /** The engine's limit is 127 bytes; a name that is longer reaches it whole and is refused there. */
        @Test
        void aNameOf200BytesReachesTheLibraryWhole() {
            byte[] name = new byte[200];
            Arrays.fill(name, (byte) 'n');
            long[] inner = {m};
            Object[] texts = {NAME};
            for (int length : new int[] {128, 200}) {
                assertStatus(QuorlException.INVALID_NAME,
                        () -> QuorlMsg.quorlMsg_AddStringArray(m, name, length, texts, 1, NO_ID, null));
                assertStatus(QuorlException.INVALID_NAME,
                        () -> QuorlMsg.quorlMsg_UpdateStringArray(m, name, length, texts, 1, NO_ID, null));
                assertStatus(QuorlException.INVALID_NAME,
                        () -> QuorlMsg.quorlMsg_AddMsgArray(m, name, length, inner, 1, NO_ID, null));
                assertStatus(QuorlException.INVALID_NAME,
                        () -> QuorlMsg.quorlMsg_UpdateMsgArray(m, name, length, inner, 1, NO_ID, null));
            }
            QuorlMsg.quorlMsg_AddStringArray(m, name, 127, texts, 1, NO_ID, null);
            assertArrayEquals(Arrays.copyOf(name, 127), QuorlMsg.quorlMsg_GetFieldName(m, 0, null));
        }

        @Test
        void anArrayOfMessagesThatIsRefusedLeavesTheHeapIntact() {
            message.addI32("x", 1);
            try (QuorlMsg inner = new QuorlMsg().addI32("n", 7)) {
                long[] live = {inner.ownHandle()};
                long[] dead = {inner.ownHandle(), 12345};
                for (int i = 0; i < 10_000; i++) {
                    assertStatus(QuorlException.INVALID_TYPE, () -> QuorlMsg.quorlMsg_UpdateMsgArray(m, NAME, 1, live, 1, NO_ID, null));
                    assertStatus(QuorlException.INVALID_TYPE, () -> QuorlMsg.quorlMsg_UpdateMsgArrayUTF(m, "x", live, 1, NO_ID, null));
                    assertStatus(QuorlException.INVALID_MSG, () -> QuorlMsg.quorlMsg_AddMsgArray(m, NAME, 1, dead, 2, NO_ID, null));
                }
                QuorlMsg.quorlMsg_AddMsgArray(m, bytes("m"), 1, live, 1, NO_ID, null);
            }
            assertEquals("{x=1, m[1]={{n=7}}}", message.toString());
            long[] handles = new long[1];
            QuorlMsg.quorlMsg_GetMsgArray(m, 1, handles, null);
            assertEquals(7, QuorlMsg.quorlMsg_GetI32(handles[0], 0, null));
            assertThrows(ArrayIndexOutOfBoundsException.class, () -> QuorlMsg.quorlMsg_GetMsgArray(m, 1, new long[0], null));
        }
    }

    // ---- bytes --------------------------------------------------------------------------------------------------------

    @Nested
    class Blocks {
        @Test
        void aUserTypeCountsByEightBits() {
            QuorlMsg.quorlMsg_AddUserType(m, (short) 0x1FF, NAME, 1, new byte[] {5}, 1, NO_ID, null);
            assertEquals(0xFF, QuorlMsg.quorlMsg_GetFieldType(m, 0, null));
            QuorlMsg.quorlMsg_AddUserTypeUTF(m, (short) 0x180, "y", new byte[] {5}, 1, NO_ID, null);
            assertEquals(0x80, QuorlMsg.quorlMsg_GetFieldType(m, 1, null));
            for (int type : new int[] {0, 0x100, 19, 127, 0x17F}) {
                assertStatus(QuorlException.INVALID_TYPE,
                        () -> QuorlMsg.quorlMsg_AddUserType(m, (short) type, NAME, 1, new byte[1], 1, NO_ID, null));
            }
            assertEquals(2, count());
        }

        /** Bytes are no addresses of strings, no messages, and no more than one number. */
        @Test
        void bytesAreNotTakenForTheArrayOfATypeOfTheLibrary() {
            byte[] high = {-1, -2, -3, -4, -5, -6, -7, -8};
            for (byte[] eight : List.of(new byte[8], bytes("12345678"), high)) {
                assertStatus(QuorlException.INVALID_SIZE,
                        () -> QuorlMsg.quorlMsg_AddUserType(m, (short) 47, NAME, 1, eight, 8, NO_ID, null));
                assertStatus(QuorlException.INVALID_SIZE,
                        () -> QuorlMsg.quorlMsg_UpdateUserTypeUTF(m, (short) 47, "x", eight, 8, NO_ID, null));
                assertStatus(QuorlException.INVALID_MSG,
                        () -> QuorlMsg.quorlMsg_AddUserType(m, (short) 48, NAME, 1, eight, 8, NO_ID, null));
            }
            for (int type = 34; type <= 43; type++) {
                int code = type;
                assertStatus(QuorlException.INVALID_SIZE,
                        () -> QuorlMsg.quorlMsg_AddUserType(m, (short) code, NAME, 1, new byte[16], 16, NO_ID, null));
            }
            assertEquals(0, count());
        }

        @Test
        void theGettersOfBytesDoNotAskForTheType() {
            byte[] xml = bytes("<a/>");
            message.addXml("x", xml).addOpaque("o", xml).addUser("u", 130, xml).addI32("n", 0x01020304);
            for (int index = 0; index < 3; index++) {
                byte[] read = new byte[4];
                QuorlMsg.quorlMsg_GetOpaque(m, index, read, null);
                assertArrayEquals(xml, read);
                QuorlMsg.quorlMsg_GetXml(m, index, read = new byte[4], null);
                assertArrayEquals(xml, read);
                QuorlMsg.quorlMsg_GetUserType(m, index, read = new byte[4], null);
                assertArrayEquals(xml, read);
            }
        }

        /** Where a value is no address it is not read as one. */
        @Test
        void aNumberIsItsOwnBytesAndAMessageIsNone() {
            message.addI64("n", 0x4142434445464748L).addBool("b", true);
            try (QuorlMsg inner = new QuorlMsg()) {
                message.addMsg("m", inner);
            }
            byte[] number = new byte[8];
            QuorlMsg.quorlMsg_GetOpaque(m, 0, number, null);
            assertArrayEquals(bytes("HGFEDCBA"), number);
            QuorlMsg.quorlMsg_GetXml(m, 0, number = new byte[8], null);
            assertArrayEquals(bytes("HGFEDCBA"), number);
            byte[] truth = new byte[4];
            QuorlMsg.quorlMsg_GetUserType(m, 1, truth, null);
            assertArrayEquals(new byte[] {1, 0, 0, 0}, truth);
            int failed = QuorlException.CONVERSION_FAILED;
            byte[] some = new byte[64];
            assertStatus(failed, () -> QuorlMsg.quorlMsg_GetOpaque(m, 2, some, null));
            assertStatus(failed, () -> QuorlMsg.quorlMsg_GetXml(m, 2, some, null));
            for (int index = 0; index < 3; index++) {
                int at = index;
                assertStatus(failed, () -> QuorlMsg.quorlMsg_GetString(m, at, some, null));
                assertStatus(failed, () -> QuorlMsg.quorlMsg_GetStringUTF8(m, at, null));
                assertStatus(failed, () -> QuorlMsg.quorlMsg_GetStringArray(m, at, null));
                assertStatus(failed, () -> QuorlMsg.quorlMsg_GetMsgArray(m, at, new long[1], null));
                assertStatus(failed, () -> QuorlMsg.quorlMsg_GetI64Array(m, at, new long[1], null));
                assertStatus(failed, () -> QuorlMsg.quorlMsg_GetU8Array(m, at, new short[1], null));
            }
        }

        @Test
        void bytesOfTheCodeOfANumberAreTheNumber() {
            QuorlMsg.quorlMsg_AddUserType(m, (short) 8, NAME, 1, bytes("HGFEDCBA"), 8, NO_ID, null);
            assertEquals(0x4142434445464748L, QuorlMsg.quorlMsg_GetI64(m, 0, null));
            QuorlMsg.quorlMsg_UpdateUserTypeUTF(m, (short) 8, "x", bytes("AAAAAAAA"), 8, NO_ID, null);
            assertEquals(0x4141414141414141L, QuorlMsg.quorlMsg_GetI64(m, 0, null));
            assertStatus(QuorlException.INVALID_MSG,
                    () -> QuorlMsg.quorlMsg_AddUserType(m, (short) 16, NAME, 1, bytes("HGFEDCBA"), 8, NO_ID, null));
            assertStatus(QuorlException.INVALID_SIZE,
                    () -> QuorlMsg.quorlMsg_AddUserType(m, (short) 8, NAME, 1, bytes("HGF"), 3, NO_ID, null));
        }

        @Test
        void noBytesAreAField() {
            byte[] some = {1, 2};
            QuorlMsg.quorlMsg_AddOpaque(m, NAME, 1, some, 0, NO_ID, null);
            QuorlMsg.quorlMsg_AddXml(m, NAME, 1, new byte[0], 0, NO_ID, null);
            QuorlMsg.quorlMsg_AddUserType(m, (short) 128, NAME, 1, some, 0, NO_ID, null);
            for (int index = 0; index < 3; index++) {
                assertEquals(0, QuorlMsg.quorlMsg_GetFieldSize(m, index, null));
                QuorlMsg.quorlMsg_GetOpaque(m, index, some, null);
            }
            assertArrayEquals(new byte[] {1, 2}, some);
        }

        @Test
        void nothingIsWrittenForAPositionThatIsNotThere() {
            message.addXml("x", new byte[2]);
            byte[] untouched = {1, 2, 3};
            for (int index : new int[] {1, 0xFFFF, 0x10001}) {
                assertStatus(QuorlException.NOT_FOUND, () -> QuorlMsg.quorlMsg_GetXml(m, index, untouched, null));
                assertStatus(QuorlException.NOT_FOUND, () -> QuorlMsg.quorlMsg_GetOpaque(m, index, untouched, null));
                assertStatus(QuorlException.NOT_FOUND, () -> QuorlMsg.quorlMsg_GetUserType(m, index, untouched, null));
            }
            assertArrayEquals(new byte[] {1, 2, 3}, untouched);
            assertThrows(ArrayIndexOutOfBoundsException.class, () -> QuorlMsg.quorlMsg_GetXml(m, 0, new byte[1], null));
        }

        @Test
        void onlyRawBytesHaveAHandler() {
            QuorlMsg.quorlMsg_SetOpaqueHandlers((short) 0);
            QuorlMsg.quorlMsg_SetOpaqueHandlers((short) 0x100);
            assertStatus(QuorlException.RESERVED_HANDLER, () -> QuorlMsg.quorlMsg_SetOpaqueHandlers((short) 1));
            assertStatus(QuorlException.NOT_FOUND, () -> QuorlMsg.quorlMsg_SetOpaqueHandlers((short) 0x1FF));
        }
    }

    // ---- messages inside ----------------------------------------------------------------------------------------------

    @Test
    void aMessageInsideBelongsToTheOuterOne() {
        try (QuorlMsg inner = new QuorlMsg().addI32("n", 7)) {
            QuorlMsg.quorlMsg_AddMsg(m, NAME, 1, inner.ownHandle(), NO_ID, null, null);
        }
        long inside = QuorlMsg.quorlMsg_GetMsg(m, 0, null);
        QuorlMsg.quorlMsg_Destroy(inside, null);
        assertEquals(7, QuorlMsg.quorlMsg_GetI32(inside, 0, null), "it is not the caller's to destroy");
        assertStatus(QuorlException.NOT_PERMITTED, () -> QuorlMsg.quorlMsg_AddI32(inside, NAME, 1, 1, NO_ID, null));
        message.addI32("more", 1);
        assertStatus(QuorlException.INVALID_MSG, () -> QuorlMsg.quorlMsg_GetI32(inside, 0, null));
        assertEquals(List.of("n"), message.getMsg("x").getFields("n").stream().map(QuorlMsgField::getName).toList());
    }
}
