package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.Random;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** The rate of a stream, on a clock that the test turns: every count is exact. */
class PaceTest {
    private static final long SECOND = 1_000_000_000L;

    /** Sleeps too long by up to 5 ms, as systems do; each message takes a little time as well. */
    private static final class FakeClock implements Pace.Clock {
        private final Random random = new Random(1);
        private final long origin;
        private long now;
        private long sleeps;

        FakeClock(long origin) {
            this.origin = origin;
            now = origin;
        }

        @Override
        public long now() {
            return now;
        }

        @Override
        public void sleepUntil(long time) {
            assertTrue(time - now > 0, "it slept for a time that has passed");
            sleeps++;
            now = time + random.nextInt(5_000_000);
        }

        long elapsed() {
            return now - origin;
        }
    }

    @ParameterizedTest
    @ValueSource(doubles = {0.01, 0.3, 1, 3, 7, 99.9, 1000, 100_000})
    void everyHourHasAsManyMessagesAsTheRateSays(double rate) throws InterruptedException {
        double seconds = Math.min(3600, 1_000_000 / rate);
        // A clock that overflows on the way.
        FakeClock clock = new FakeClock(Long.MAX_VALUE - 1000 * SECOND);
        Pace pace = new Pace(rate, clock);
        long count = 0;
        for (pace.await(); clock.elapsed() < seconds * SECOND; pace.await()) {
            count++;
            clock.now += 1000;
        }
        // Those due in the last 5 ms may be late.
        assertEquals(Math.ceil(seconds * rate), count, 1 + rate * 0.005);
        assertTrue(clock.sleeps <= count + 1, clock.sleeps + " sleeps for " + count + " messages");
    }

    @Test
    void aPauseOfTheInputIsNotMadeUpForInARush() throws InterruptedException {
        FakeClock clock = new FakeClock(5);
        Pace pace = new Pace(10, clock);
        for (int i = 0; i < 10; i++) pace.await();
        clock.now += 3600 * SECOND;
        long back = clock.now;
        int count = 0;
        for (pace.await(); clock.now - back < SECOND; pace.await()) count++;
        assertEquals(10, count, 1);
    }

    @Test
    void aShortDelayIsMadeUpFor() throws InterruptedException {
        FakeClock clock = new FakeClock(5);
        Pace pace = new Pace(10, clock);
        for (int i = 0; i < 10; i++) pace.await();
        clock.now += SECOND / 2;
        for (int i = 0; i < 20; i++) pace.await();
        assertEquals(2.9, (clock.elapsed()) / 1e9, 0.01);
    }

    @Test
    void aRateThatNobodyLivesToSeeWaits() throws InterruptedException {
        FakeClock clock = new FakeClock(5);
        Pace pace = new Pace(1e-300, clock);
        pace.await();
        pace.await();
        assertTrue(clock.elapsed() > 3600L * 24 * 365 * SECOND);
    }
}
