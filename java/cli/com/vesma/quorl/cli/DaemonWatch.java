package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlDispatcher;
import com.vesma.quorl.QuorlListener;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlQrdTransport;
import com.vesma.quorl.QuorlQueue;
import java.time.Duration;
import java.util.function.Consumer;

/**
 * Hears what the library tells of daemons, also while the transports to them close: on a transport, a queue and a thread of
 * its own.
 */
final class DaemonWatch implements AutoCloseable {
    private final QuorlQrdTransport transport = new QuorlQrdTransport(null, null, "");
    private final QuorlQueue queue = new QuorlQueue("quorl advisories");
    private final QuorlListener listener;
    private final QuorlDispatcher dispatcher;

    DaemonWatch(Consumer<QuorlMsg> told) {
        listener = new QuorlListener(queue, transport, "_QUORL.*.*.*", (l, advisory) -> told.accept(advisory));
        dispatcher = new QuorlDispatcher(queue, "quorl-watch");
    }

    /** What has been told until now is handled before. */
    @Override
    public void close() {
        dispatcher.close();
        try {
            while (queue.dispatch(Duration.ZERO)) continue;
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
        listener.close();
        queue.close();
        transport.close();
    }
}
