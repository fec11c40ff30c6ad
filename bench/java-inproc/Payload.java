import java.lang.invoke.MethodHandles;
import java.lang.invoke.VarHandle;
import java.nio.ByteOrder;
import java.util.Arrays;

/** The numbered payload and its check, as the native cases have them (bench/support/payload.h). */
final class Payload {
    static final long HELLO = -2;
    static final long END = -1;

    private static final byte FILL = 0x35;
    private static final VarHandle WORDS = MethodHandles.byteArrayViewVarHandle(long[].class, ByteOrder.LITTLE_ENDIAN);

    private Payload() {}

    static byte[] blank(int size) {
        byte[] bytes = new byte[size];
        Arrays.fill(bytes, FILL);
        return bytes;
    }

    static void number(byte[] bytes, long number) {
        long hash = hash(number);
        WORDS.set(bytes, 0, number);
        WORDS.set(bytes, 8, hash);
        if (bytes.length >= 24) {
            WORDS.set(bytes, bytes.length - 8, ~hash);
        }
    }

    static long numberOf(byte[] bytes) {
        return (long) WORDS.get(bytes, 0);
    }

    static boolean intact(byte[] bytes, int size, int expectedSize) {
        if (size != expectedSize) {
            return false;
        }
        long number = numberOf(bytes);
        long hash = hash(number);
        if ((long) WORDS.get(bytes, 8) != hash) {
            return false;
        }
        if (size < 24) {
            return true;
        }
        if ((long) WORDS.get(bytes, size - 8) != ~hash) {
            return false;
        }
        if (number % 1024 != 0) {
            return true;
        }
        for (int i = 16; i < size - 8; ++i) {
            if (bytes[i] != FILL) {
                return false;
            }
        }
        return true;
    }

    private static long hash(long number) {
        number *= 0x9fb21c651e98df25L;
        number ^= number >>> 32;
        number *= 0xd1342543de82ef95L;
        return number ^ number >>> 29;
    }
}
