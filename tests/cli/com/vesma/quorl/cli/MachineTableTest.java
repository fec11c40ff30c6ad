package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

class MachineTableTest {
    private static final long GIB = 1L << 30;
    private final MachineTable table = new MachineTable();

    private void fill() {
        table.traffic("lo", 0, 0, 3319, 3319);
        table.traffic("eth0", 12_600, 2_048, 30L << 20, 81_449);
        table.load(new ProcReader.Load(0.5, 1.25, 2, 3, 98));
        table.memory(new ProcReader.Memory(8 * GIB, GIB, 6 * GIB, 0, 0));
        table.cpu(10, 100);
        table.cpu(2, 0);
        table.cpu(2, 50);
    }

    @Test
    void rowsAreInAFixedOrderWhateverCameFirst() {
        fill();
        assertEquals(List.of("  cpu 2      [||||||||||||            ]  50.0 %",
                "  cpu 10     [||||||||||||||||||||||||] 100.0 %",
                "  memory     [||||||                  ]  25.0 %  2.00 GiB of 8.00 GiB",
                "  load       0.50  1.25  2.00   3 of 98 tasks running",
                "  eth0       in   12.3 KiB/s   out   2.00 KiB/s   total in 30.0 MiB, out 79.5 KiB",
                "  lo         in        0 B/s   out        0 B/s   total in 3.24 KiB, out 3.24 KiB"),
                table.lines(100));
    }

    @Test
    void saysHowManyRowsDidNotFit() {
        fill();
        assertEquals(6, table.lines(6).size());
        List<String> lines = table.lines(3);
        assertEquals(3, lines.size());
        assertEquals("  ... 4 more", lines.get(2));
    }

    @Test
    void onlyWhatWasReceivedIsShown() {
        assertEquals(List.of(), table.lines(10));
        assertEquals("", table.summary());
        table.load(new ProcReader.Load(0.5, 1.25, 2, 3, 98));
        assertEquals("load 0.50", table.summary());
    }

    @Test
    void oneLineHoldsTheMainFigures() {
        fill();
        assertEquals("cpu 75.0 %  memory 25.0 %  load 0.50  net in 12.3 KiB/s out 2.00 KiB/s", table.summary());
    }

    @ParameterizedTest
    @CsvSource({"0, 0 B", "999, 999 B", "1000, 0.98 KiB", "1024, 1.00 KiB", "10240, 10.0 KiB", "102400, 100 KiB",
            "1e12, 931 GiB", "1e19, 8.67 EiB"})
    void amountsCarryAUnit(double amount, String text) {
        assertEquals(text, MachineTable.bytes(amount));
    }
}
