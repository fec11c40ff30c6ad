package com.vesma.quorl.cli;

import java.util.concurrent.TimeUnit;
import picocli.CommandLine.Command;
import picocli.CommandLine.Parameters;

/** wait, in scripts only: lets the listeners work for a while before the next line. */
@Command(name = "wait", description = "Waits, while listen and reply lines stay active.")
final class WaitCommand extends Action {
    @Parameters(paramLabel = "SECONDS", description = "how long")
    double seconds;

    @Override
    void check() {
        checkAtLeast("wait", seconds, 0);
    }

    @Override
    String aloneOnTheBus() {
        return null;
    }

    @Override
    void begin(Session session) throws InterruptedException {
        TimeUnit.MICROSECONDS.sleep((long) (seconds * 1e6));
    }
}
