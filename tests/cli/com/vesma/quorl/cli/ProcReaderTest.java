package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Optional;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** ProcReader on canned files, whole, damaged and missing. */
class ProcReaderTest {
    @TempDir
    Path proc;

    private void file(String name, String text) throws IOException {
        Path path = proc.resolve(name);
        Files.createDirectories(path.getParent());
        Files.writeString(path, text);
    }

    @Test
    void readsEachCoreAndNotTheirSum() throws IOException {
        file("stat", """
                cpu  300 30 150 2000 40 5 6 7 0 0
                cpu0 100 10 50 1000 20 1 2 3 99 98
                cpu2 200 20 100 1000 20 4 4 4 0 0
                intr 185287 0 0
                ctxt 326637
                """);
        assertEquals(List.of(new ProcReader.Cpu(0, 110, 56, 1000, 20), new ProcReader.Cpu(2, 220, 112, 1000, 20)),
                new ProcReader(proc).cpus());
    }

    @Test
    void readsACoreOfAnOldKernelWithoutTheLaterColumns() throws IOException {
        file("stat", "cpu0 100 10 50 1000\n");
        assertEquals(List.of(new ProcReader.Cpu(0, 110, 50, 1000, 0)), new ProcReader(proc).cpus());
    }

    @Test
    void leavesOutLinesThatDoNotParse() throws IOException {
        file("stat", "cpu0 100 ten 50 1000\ncpux 1 2 3 4\ncpu1 1 2\n\ncpu3 1 2 3 4 5\n");
        assertEquals(List.of(new ProcReader.Cpu(3, 3, 3, 4, 5)), new ProcReader(proc).cpus());
    }

    @Test
    void aCoreIsAsBusyAsItsTimeSaysThatWasNotIdle() {
        var earlier = new ProcReader.Cpu(0, 100, 100, 1000, 50);
        assertEquals(25.0, new ProcReader.Cpu(0, 120, 105, 1070, 55).busyPercentSince(earlier));
        assertEquals(0.0, earlier.busyPercentSince(earlier), "no time has passed");
        assertEquals(0.0, new ProcReader.Cpu(0, 0, 0, 0, 0).busyPercentSince(earlier), "the core was reset");
        assertEquals(100.0, new ProcReader.Cpu(0, 200, 100, 1000, 40).busyPercentSince(earlier),
                "waiting time may go back a little");
    }

    @Test
    void readsMemoryInBytes() throws IOException {
        file("meminfo", """
                MemTotal:       24682416 kB
                MemFree:        23645956 kB
                MemAvailable:   24216612 kB
                SwapTotal:          1024 kB
                SwapFree:            512 kB
                HugePages_Total:       0
                Hugepagesize:       2048 kB
                """);
        var memory = new ProcReader(proc).memory().orElseThrow();
        assertEquals(new ProcReader.Memory(24682416L * 1024, 23645956L * 1024, 24216612L * 1024, 1024 * 1024, 512 * 1024),
                memory);
        assertEquals(100.0 * (24682416 - 24216612) / 24682416, memory.usedPercent(), 1e-9);
    }

    @Test
    void takesFreeMemoryWhereNoneIsCalledAvailable() throws IOException {
        file("meminfo", "MemTotal: 1000 kB\nMemFree: 250 kB\n");
        var memory = new ProcReader(proc).memory().orElseThrow();
        assertEquals(256_000, memory.available());
        assertEquals(75.0, memory.usedPercent());
    }

    @Test
    void givesNoMemoryWithoutItsTotalOrWithNonsense() throws IOException {
        file("meminfo", "MemTotal: many kB\nMemFree: 250 kB\nMemAvailable: 9223372036854775807 kB\n");
        assertEquals(Optional.empty(), new ProcReader(proc).memory());
    }

    @Test
    void readsTheLoad() throws IOException {
        file("loadavg", "0.53 1.16 12.05 2/98 7313\n");
        assertEquals(Optional.of(new ProcReader.Load(0.53, 1.16, 12.05, 2, 98)), new ProcReader(proc).load());
    }

    @Test
    void givesNoLoadForNonsense() throws IOException {
        file("loadavg", "0.53 1.16 12.05 two 7313\n");
        assertEquals(Optional.empty(), new ProcReader(proc).load());
        file("loadavg", "a b c 1/2 3\n");
        assertEquals(Optional.empty(), new ProcReader(proc).load());
        file("loadavg", "");
        assertEquals(Optional.empty(), new ProcReader(proc).load());
    }

    @Test
    void readsInterfacesAlsoAliasesAndFiguresWithoutASpace() throws IOException {
        file("net/dev", """
                Inter-|   Receive                                                |  Transmit
                 face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop fifo colls carrier compressed
                    lo:    3319      30    1    0    0     0          0         0     3320      31    2    0    0     0       0          0
                eth0:1:29776590    1252    0    0    0     0          0         0    81449    1073    0    0    0     0       0          0
                  bad: 1 2 3
                """);
        assertEquals(
                List.of(new ProcReader.Interface("lo", 3319, 30, 1, 3320, 31, 2),
                        new ProcReader.Interface("eth0:1", 29776590, 1252, 0, 81449, 1073, 0)),
                new ProcReader(proc).interfaces());
    }

    @Test
    void readsTheHostName() throws IOException {
        file("sys/kernel/hostname", "line3.plant\n");
        assertEquals("line3.plant", new ProcReader(proc).hostName());
    }

    @Test
    void toleratesThatEveryFileIsMissing() {
        var reader = new ProcReader(proc.resolve("nothing"));
        assertTrue(reader.cpus().isEmpty());
        assertTrue(reader.interfaces().isEmpty());
        assertEquals(Optional.empty(), reader.memory());
        assertEquals(Optional.empty(), reader.load());
        assertEquals("localhost", reader.hostName());
    }

    @Test
    void toleratesAFolderInAFilesPlace() throws IOException {
        Files.createDirectories(proc.resolve("stat"));
        assertTrue(new ProcReader(proc).cpus().isEmpty());
    }

    @Test
    void readsThisMachine() {
        var reader = new ProcReader(Path.of("/proc"));
        assertFalse(reader.cpus().isEmpty());
        assertTrue(reader.memory().orElseThrow().total() > 0);
        assertTrue(reader.load().orElseThrow().tasks() > 0);
    }
}
