package com.vesma.quorl.internal.image;

import com.vesma.quorl.QuorlException;
import java.lang.invoke.MethodHandles;
import java.lang.invoke.VarHandle;
import java.util.ConcurrentModificationException;
import java.util.concurrent.locks.LockSupport;

/**
 * Lets one thread at a time use a message, and none after its close.
 *
 * <p>The library does not stand two threads in one message. The guard is one compare-and-set on the way in and one plain
 * store on the way out; a second thread that comes meanwhile is refused, and a close waits until the first is out. Messages
 * inside a message share the outermost one's guard, since they share its storage.
 */
public final class MessageGuard {
    private static final int IDLE = 0;
    private static final int BUSY = 1;
    private static final int CLOSED = 2;

    private static final VarHandle STATE;

    static {
        try {
            STATE = MethodHandles.lookup().findVarHandle(MessageGuard.class, "state", int.class);
        } catch (ReflectiveOperationException e) {
            throw new ExceptionInInitializerError(e);
        }
    }

    /** Written through STATE only. */
    private volatile int state;

    /** The message is this thread's alone until {@link #leave}. */
    public void enter() {
        if (!STATE.compareAndSet(this, IDLE, BUSY)) {
            throw refusal();
        }
    }

    public void leave() {
        STATE.setRelease(this, IDLE);
    }

    private RuntimeException refusal() {
        return isEnded() ? ApiAccess.closed(QuorlException.INVALID_MSG, "the message")
                : new ConcurrentModificationException("another thread uses the message at the same time");
    }

    /** Whether this call ended the use of the message for good; waits for a thread that is inside. */
    public boolean enterForClose() {
        for (int turn = 0; !STATE.compareAndSet(this, IDLE, CLOSED); turn++) {
            if (isEnded()) {
                return false;
            }
            if (turn < 100) {
                Thread.onSpinWait();
            } else {
                LockSupport.parkNanos(20_000);
            }
        }
        return true;
    }

    public boolean isEnded() {
        return state == CLOSED;
    }

    /** For a view, whose life the message bounds: one load, which the closing thread and whoever it told see at once. */
    public void refuseEnded() {
        if ((int) STATE.getOpaque(this) == CLOSED) {
            throw ApiAccess.closed(QuorlException.INVALID_MSG, "the view's message");
        }
    }
}
