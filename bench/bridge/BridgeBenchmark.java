package com.vesma.quorl;

import java.util.Arrays;
import java.util.Locale;

/** The bridge case: a native of each shape beside its floor, in turn, median of the rounds. */
public final class BridgeBenchmark {
    private static final int ROUNDS = (int) Math.max(5, setting("BENCH_ROUNDS", 5));
    private static final long RUN_NS = (long) (setting("BENCH_SECONDS", 0.6) * 1e8);

    private static final byte[] NUMBER = "number".getBytes();
    private static final byte[] TEXT = "text".getBytes();
    private static final byte[] NUMBERS = "numbers".getBytes();
    private static final byte[] BYTES = "bytes".getBytes();
    private static final short NO_ID = 0;

    // The places of the fields in the message.
    private static final int NUMBER_AT = 0;
    private static final int NUMBERS_AT = 2;
    private static final int BYTES_AT = 3;

    private static long sink;

    private BridgeBenchmark() {}

    /** A loop of calls; each is a class of its own, so that each has compiled code of its own. */
    private interface Calls {
        void make(int count);
    }

    public static void main(String[] arguments) {
        System.load(arguments[0]);
        try (Quorl library = Quorl.open()) {
            long m = QuorlMsg.quorlMsg_Create();
            byte[] value = "a text of 20 letters".getBytes();
            int[] numbers = new int[16];
            int[] manyNumbers = new int[1000];
            byte[] bytes = new byte[64];
            QuorlMsg.quorlMsg_AddI32(m, NUMBER, NUMBER.length, 42, NO_ID, null);
            QuorlMsg.quorlMsg_AddString(m, TEXT, TEXT.length, value, value.length, NO_ID, null);
            QuorlMsg.quorlMsg_AddI32Array(m, NUMBERS, NUMBERS.length, numbers, numbers.length, NO_ID, null);
            QuorlMsg.quorlMsg_AddOpaque(m, BYTES, BYTES.length, bytes, bytes.length, NO_ID, null);
            byte[] subject = "plant.line3.temp".getBytes();
            QuorlMsg.quorlMsg_SetSendSubject(m, subject, subject.length, null);

            long wide = QuorlMsg.quorlMsg_Create();
            QuorlMsg.quorlMsg_AddI32Array(wide, NUMBERS, NUMBERS.length, manyNumbers, manyNumbers.length, NO_ID, null);

            compare("get_i32_by_index",
                    n -> { for (int i = 0; i < n; ++i) sink += QuorlMsg.quorlMsg_GetI32(m, NUMBER_AT, null); },
                    n -> { for (int i = 0; i < n; ++i) sink += BridgeFloor.byIndex(m, NUMBER_AT, null); });
            compare("get_i32_by_name",
                    n -> { for (int i = 0; i < n; ++i) sink += QuorlMsg.quorlMsg_GetI32(m, NUMBER, NUMBER.length, NO_ID, null); },
                    n -> { for (int i = 0; i < n; ++i) sink += BridgeFloor.byName(m, NUMBER, NUMBER.length, NO_ID, null); });
            compare("get_i32_by_string",
                    n -> { for (int i = 0; i < n; ++i) sink += QuorlMsg.quorlMsg_GetI32UTF(m, "number", NO_ID, null); },
                    n -> { for (int i = 0; i < n; ++i) sink += BridgeFloor.byNameUtf(m, "number", NO_ID, null); });
            compare("find_field",
                    n -> { for (int i = 0; i < n; ++i) sink += QuorlMsg.quorlMsg_GetFieldTypeAndIndex(m, NUMBER, NUMBER.length, NO_ID, null); },
                    n -> { for (int i = 0; i < n; ++i) sink += BridgeFloor.find(m, NUMBER, NUMBER.length, NO_ID, null); });
            compare("update_i32",
                    n -> { for (int i = 0; i < n; ++i) QuorlMsg.quorlMsg_UpdateI32(m, NUMBER, NUMBER.length, i, NO_ID, null); },
                    n -> { for (int i = 0; i < n; ++i) BridgeFloor.update(m, NUMBER, NUMBER.length, i, NO_ID, null); });
            compare("update_string_20",
                    n -> { for (int i = 0; i < n; ++i) QuorlMsg.quorlMsg_UpdateString(m, TEXT, TEXT.length, value, value.length, NO_ID, null); },
                    n -> { for (int i = 0; i < n; ++i) BridgeFloor.updateString(m, TEXT, TEXT.length, value, value.length, NO_ID, null); });
            compare("update_i32_array_16",
                    n -> { for (int i = 0; i < n; ++i) QuorlMsg.quorlMsg_UpdateI32Array(m, NUMBERS, NUMBERS.length, numbers, numbers.length, NO_ID, null); },
                    n -> { for (int i = 0; i < n; ++i) BridgeFloor.updateArray(m, NUMBERS, NUMBERS.length, numbers, numbers.length, NO_ID, null); });
            compare("update_i32_array_1000",
                    n -> { for (int i = 0; i < n; ++i) QuorlMsg.quorlMsg_UpdateI32Array(wide, NUMBERS, NUMBERS.length, manyNumbers, manyNumbers.length, NO_ID, null); },
                    n -> { for (int i = 0; i < n; ++i) BridgeFloor.updateArray(wide, NUMBERS, NUMBERS.length, manyNumbers, manyNumbers.length, NO_ID, null); });
            compare("update_opaque_64",
                    n -> { for (int i = 0; i < n; ++i) QuorlMsg.quorlMsg_UpdateOpaque(m, BYTES, BYTES.length, bytes, bytes.length, NO_ID, null); },
                    n -> { for (int i = 0; i < n; ++i) BridgeFloor.updateOpaque(m, BYTES, BYTES.length, bytes, bytes.length, NO_ID, null); });
            compare("get_i32_array_16",
                    n -> { for (int i = 0; i < n; ++i) QuorlMsg.quorlMsg_GetI32Array(m, NUMBERS_AT, numbers, null); },
                    n -> { for (int i = 0; i < n; ++i) BridgeFloor.getArray(m, NUMBERS_AT, numbers, null); });
            compare("get_i32_array_1000",
                    n -> { for (int i = 0; i < n; ++i) QuorlMsg.quorlMsg_GetI32Array(wide, 0, manyNumbers, null); },
                    n -> { for (int i = 0; i < n; ++i) BridgeFloor.getArray(wide, 0, manyNumbers, null); });
            compare("get_opaque_64",
                    n -> { for (int i = 0; i < n; ++i) QuorlMsg.quorlMsg_GetOpaque(m, BYTES_AT, bytes, null); },
                    n -> { for (int i = 0; i < n; ++i) BridgeFloor.getOpaque(m, BYTES_AT, bytes, null); });
            compare("get_field_name",
                    n -> { for (int i = 0; i < n; ++i) sink += QuorlMsg.quorlMsg_GetFieldName(m, NUMBER_AT, null).length; },
                    n -> { for (int i = 0; i < n; ++i) sink += BridgeFloor.fieldName(m, NUMBER_AT, null).length; });
            compare("get_as_bytes",
                    n -> { for (int i = 0; i < n; ++i) sink += QuorlMsg.quorlMsg_GetAsBytes(m, null).length; },
                    n -> { for (int i = 0; i < n; ++i) sink += BridgeFloor.asBytes(m, null).length; });
            compare("get_subject_string",
                    n -> { for (int i = 0; i < n; ++i) sink += QuorlMsg.quorlMsg_GetSendSubjectUTF8(m, null).length(); },
                    n -> { for (int i = 0; i < n; ++i) sink += BridgeFloor.subjectUtf8(m, null).length(); });

            QuorlMsg.quorlMsg_Destroy(wide, null);
            QuorlMsg.quorlMsg_Destroy(m, null);
        }
        if (sink == 0) {
            throw new IllegalStateException("nothing was read");
        }
    }

    private static void compare(String name, Calls bridge, Calls floor) {
        for (int i = 0; i < 3; ++i) {
            nsOf(bridge);
            nsOf(floor);
        }
        double[] ours = new double[ROUNDS];
        double[] least = new double[ROUNDS];
        for (int i = 0; i < ROUNDS; ++i) {
            if (i % 2 == 0) {
                ours[i] = nsOf(bridge);
                least[i] = nsOf(floor);
            } else {
                least[i] = nsOf(floor);
                ours[i] = nsOf(bridge);
            }
        }
        Arrays.sort(ours);
        Arrays.sort(least);
        double our = ours[ROUNDS / 2];
        double floorNs = least[ROUNDS / 2];
        System.out.printf(Locale.ROOT, "bridge\t%s.ns\t%.6g\tfloor\t%.6g\t%.6g%n", name, our, floorNs, floorNs / our);
    }

    /** Nanoseconds of one call. */
    private static double nsOf(Calls calls) {
        long start = System.nanoTime();
        long count = 0;
        long passed;
        do {
            calls.make(2000);
            count += 2000;
            passed = System.nanoTime() - start;
        } while (passed < RUN_NS);
        return (double) passed / count;
    }

    private static double setting(String name, double otherwise) {
        String value = System.getenv(name);
        return value == null || value.isEmpty() ? otherwise : Double.parseDouble(value);
    }
}
