package com.vesma.quorl;

import java.lang.management.ManagementFactory;
import java.lang.management.ThreadMXBean;
import java.nio.charset.StandardCharsets;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Locale;

/**
 * The Java message beside the parts that it is made of, in one run: what adding a field costs, what reading a whole message
 * through a view costs, what an array costs.
 *
 * <p>Each line holds a figure against a limit that is a multiple of other figures of the same run.
 */
public final class MessageBenchmark {
    /** A contender's time is cut into slices of a few milliseconds, some of which nothing disturbs. */
    private static final int SLICES = 100;

    private static final int ROUNDS = (int) Math.max(5, setting("BENCH_ROUNDS", 5)) * SLICES / 5;
    private static final long SLICE_NS = (long) (setting("BENCH_SECONDS", 0.6) * 1e9) / SLICES;
    private static final int WARM_UPS = 50;

    /** Calls between two looks at the clock. */
    private static final int BATCH = 1000;

    /** Fields that a message gets before it is emptied, so that emptying is a small part of the price of each. */
    private static final int FIELDS = 100;

    private static final int ARRAY_LENGTH = 1000;

    private static final ThreadMXBean THREADS = ManagementFactory.getThreadMXBean();

    private static long sink;

    private MessageBenchmark() {}

    /** A loop of calls; each is a class of its own, so that each has compiled code of its own. */
    private interface Calls {
        void make(int count);
    }

    public static void main(String[] arguments) {
        System.load(arguments[0]);
        try (Quorl library = Quorl.open(); QuorlMsg message = new QuorlMsg(); QuorlMsg record = record()) {
            add(message);
            readAll(record);
            arrays(message);
        }
        if (sink == 0) {
            throw new IllegalStateException("nothing was read");
        }
    }

    // ---- adding a number ----------------------------------------------------------------------------------------------

    private static void add(QuorlMsg message) {
        byte[] name = bytes("ten.letter");
        long handle = message.ownHandle();
        double[] ns = measure(
                n -> {
                    for (int i = 0; i < n; i += FIELDS) {
                        for (int field = 0; field < FIELDS; field++) {
                            message.addI32("ten.letter", field);
                        }
                        message.reset();
                    }
                },
                n -> { for (int i = 0; i < n; i++) MessageParts.empty(handle, name, name.length, i, (short) 0, message); },
                n -> sink += MessageParts.copyBytes(name, n),
                n -> MessageParts.addNumbers(handle, name, FIELDS, n),
                n -> MessageParts.copyAndAddNumbers(handle, name, FIELDS, n));
        print("add_i32.by_cached_name", ns[0], "1.3 x (crossing + copy of 10 B + add in C)", 1.3 * (ns[1] + ns[2] + ns[3]));
        print("add_i32.by_cached_name", ns[0], "1.3 x (crossing + copy of 10 B and its add in C)", 1.3 * (ns[1] + ns[4]));
    }

    // ---- reading a whole message --------------------------------------------------------------------------------------

    private static QuorlMsg record() {
        byte[] digest = new byte[32];
        int[] samples = new int[16];
        for (int i = 0; i < digest.length; i++) {
            digest[i] = (byte) (i * 11);
        }
        for (int i = 0; i < samples.length; i++) {
            samples[i] = i * 99_991 - 700_000;
        }
        return new QuorlMsg().addBool("active", true).addI32("level", -271_828).addU32("counter", 3_141_592_653L)
                .addI64("balance", -9_007_199_254_740_993L).addU64("order", 0xF0E1_D2C3_B4A5_9687L)
                .addF64("price", 99.875).addString("customer", "abcdefghijklmnopqrst")
                .addDateTime("created", Instant.ofEpochMilli(1_795_219_200_123L)).addOpaque("digest", digest)
                .addI32Array("samples", samples);
    }

    private static void readAll(QuorlMsg record) {
        long handle = record.ownHandle();
        byte[] active = bytes("active");
        byte[] level = bytes("level");
        byte[] counter = bytes("counter");
        byte[] balance = bytes("balance");
        byte[] order = bytes("order");
        byte[] price = bytes("price");
        byte[] customer = bytes("customer");
        byte[] created = bytes("created");
        byte[] digest = bytes("digest");
        byte[] samples = bytes("samples");
        double[] ns = measure(
                n -> {
                    for (int i = 0; i < n; i++) {
                        QuorlMsgView view = record.view();
                        sink += sum(view.getBool("active"), view.getI32("level"), view.getU32("counter"),
                                view.getI64("balance"), view.getU64("order"), view.getF64("price"),
                                view.getString("customer"), view.getDateTime("created"), view.getOpaque("digest"),
                                view.getI32Array("samples"));
                    }
                },
                n -> {
                    for (int i = 0; i < n; i++) {
                        sink += sum(record.getBool("active"), record.getI32("level"), record.getU32("counter"),
                                record.getI64("balance"), record.getU64("order"), record.getF64("price"),
                                record.getString("customer"), record.getDateTime("created"), record.getOpaque("digest"),
                                record.getI32Array("samples"));
                    }
                },
                // The natives alone, without the guard and the checks of the getters above: one where the field's name can be
                // given, otherwise one that finds it and those that read it.
                n -> {
                    for (int i = 0; i < n; i++) {
                        int at = find(handle, customer, record);
                        byte[] text = new byte[(int) QuorlMsg.quorlMsg_GetFieldSize(handle, at, record) - 1];
                        QuorlMsg.quorlMsg_GetString(handle, at, text, record);
                        at = find(handle, digest, record);
                        byte[] opaque = new byte[(int) QuorlMsg.quorlMsg_GetFieldSize(handle, at, record)];
                        QuorlMsg.quorlMsg_GetOpaque(handle, at, opaque, record);
                        at = find(handle, samples, record);
                        int[] numbers = new int[(int) QuorlMsg.quorlMsg_GetFieldCount(handle, at, record)];
                        QuorlMsg.quorlMsg_GetI32Array(handle, at, numbers, record);
                        at = find(handle, created, record);
                        sink += sum(QuorlMsg.quorlMsg_GetBool(handle, active, active.length, (short) 0, record),
                                QuorlMsg.quorlMsg_GetI32(handle, level, level.length, (short) 0, record),
                                QuorlMsg.quorlMsg_GetU32(handle, find(handle, counter, record), record),
                                QuorlMsg.quorlMsg_GetI64(handle, balance, balance.length, (short) 0, record),
                                QuorlMsg.quorlMsg_GetU64(handle, find(handle, order, record), record),
                                QuorlMsg.quorlMsg_GetF64(handle, price, price.length, (short) 0, record),
                                new String(text, StandardCharsets.UTF_8),
                                Instant.ofEpochSecond(QuorlMsg.quorlMsg_GetDateSec(handle, at, record),
                                        QuorlMsg.quorlMsg_GetDateNSec(handle, at, record)),
                                opaque, numbers);
                    }
                });
        print("read_all.view", ns[0], "0.5 x the getters of the message", 0.5 * ns[1]);
        print("read_all.view", ns[0], "0.5 x the natives alone", 0.5 * ns[2]);
    }

    private static int find(long handle, byte[] name, QuorlMsg message) {
        return FieldCalls.indexIn(QuorlMsg.quorlMsg_GetFieldTypeAndIndex(handle, name, name.length, (short) 0, message));
    }

    private static long sum(boolean active, int level, long counter, long balance, long order, double price, String customer,
            Instant created, byte[] digest, int[] samples) {
        return (active ? 1 : 0) + level + counter + balance + order + Double.doubleToRawLongBits(price) + customer.length()
                + created.getNano() + digest[31] + samples[15];
    }

    // ---- arrays -------------------------------------------------------------------------------------------------------

    /** What the numbers of an array cost is what a long one costs more than one of a single number. */
    private static void arrays(QuorlMsg message) {
        try (QuorlMsg few = new QuorlMsg(); QuorlMsg many = new QuorlMsg()) {
            List<Calls> contenders = new ArrayList<>(arrays(message, few, 1));
            int kinds = contenders.size();
            contenders.addAll(arrays(message, many, ARRAY_LENGTH));
            double[] ns = measure(contenders.toArray(new Calls[0]));
            double[] ofNumbers = new double[kinds];
            for (int i = 0; i < kinds; i++) {
                ofNumbers[i] = ns[kinds + i] - ns[i];
            }
            print("i32_array_1000.add", ofNumbers[0], "1 GetIntArrayRegion", ofNumbers[1]);
            print("i32_array_1000.get", ofNumbers[2], "1 SetIntArrayRegion into a new array", ofNumbers[3]);
            print("i32_array_1000.get_of_view", ofNumbers[4], "1 copy into a new array", ofNumbers[5]);
        }
    }

    private static List<Calls> arrays(QuorlMsg message, QuorlMsg full, int length) {
        int[] numbers = new int[length];
        for (int i = 0; i < numbers.length; i++) {
            numbers[i] = i * 99_991;
        }
        long fullHandle = full.addI32Array("numbers", numbers).ownHandle();
        QuorlMsgView view = full.view();
        return List.of(
                n -> { for (int i = 0; i < n; i++) message.addI32Array("numbers", numbers).reset(); },
                n -> { for (int i = 0; i < n; i++) sink += MessageParts.copyIn(numbers); },
                n -> { for (int i = 0; i < n; i++) sink += full.getI32Array("numbers")[i % length]; },
                n -> {
                    for (int i = 0; i < n; i++) {
                        int[] copy = new int[length];
                        MessageParts.copyOut(fullHandle, 0, copy);
                        sink += copy[i % length];
                    }
                },
                n -> { for (int i = 0; i < n; i++) sink += view.getI32Array("numbers")[i % length]; },
                n -> {
                    for (int i = 0; i < n; i++) {
                        int[] copy = new int[length];
                        System.arraycopy(numbers, 0, copy, 0, length);
                        sink += copy[i % length];
                    }
                });
    }

    // ---- measuring ----------------------------------------------------------------------------------------------------

    /** Nanoseconds of one call of each: processor time, the least of the slices, in which they take turns. */
    private static double[] measure(Calls... contenders) {
        for (int i = 0; i < WARM_UPS; i++) {
            for (Calls each : contenders) {
                nsOf(each);
            }
        }
        double[] least = new double[contenders.length];
        Arrays.fill(least, Double.MAX_VALUE);
        for (int round = 0; round < ROUNDS; round++) {
            for (int i = 0; i < contenders.length; i++) {
                int who = round % 2 == 0 ? i : contenders.length - 1 - i;
                least[who] = Math.min(least[who], nsOf(contenders[who]));
            }
        }
        return least;
    }

    private static double nsOf(Calls calls) {
        long start = THREADS.getCurrentThreadCpuTime();
        long count = 0;
        long passed;
        do {
            calls.make(BATCH);
            count += BATCH;
            passed = THREADS.getCurrentThreadCpuTime() - start;
        } while (passed < SLICE_NS);
        return (double) passed / count;
    }

    private static void print(String metric, double ours, String limit, double limitNs) {
        System.out.printf(Locale.ROOT, "java-message\t%s.ns\t%.6g\t%s\t%.6g\t%.6g%n", metric, ours, limit, limitNs,
                limitNs / ours);
    }

    private static byte[] bytes(String name) {
        return name.getBytes(StandardCharsets.UTF_8);
    }

    private static double setting(String name, double otherwise) {
        String value = System.getenv(name);
        return value == null || value.isEmpty() ? otherwise : Double.parseDouble(value);
    }
}
