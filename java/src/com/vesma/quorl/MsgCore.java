package com.vesma.quorl;

import java.lang.invoke.MethodHandles;
import java.lang.invoke.VarHandle;
import java.util.ConcurrentModificationException;
import java.util.Objects;
import java.util.Set;
import java.util.concurrent.locks.LockSupport;

/**
 * What keeps a message's handle from harm: the guard that every use of it passes, and the lookups that need a type
 * checked before a value is read.
 *
 * <p>The library does not stand two threads in one message. The guard is one compare-and-set on the way in and one plain
 * store on the way out; a second thread that comes meanwhile is refused, and a close waits until the first is out. Messages
 * inside a message share the outermost one's guard, since they share its storage.
 *
 * <p>The bridge's getters by index read a field as the type that they are named after, whatever it is. So the type is
 * checked here first, behind the guard, which no change can pass.
 */
abstract class MsgCore {
    private static final int IDLE = 0;
    private static final int BUSY = 1;
    private static final int CLOSED = 2;

    private static final VarHandle STATE;

    static {
        try {
            STATE = MethodHandles.lookup().findVarHandle(MsgCore.class, "state", int.class);
        } catch (ReflectiveOperationException e) {
            throw new ExceptionInInitializerError(e);
        }
    }

    /** The natives' getters use 16 bits of an index. */
    private static final long LAST_INDEX = 0xFFFF;

    private final long handle;

    /** The outermost message, this one itself when it is nobody's. */
    private final MsgCore root;

    /** Of the outermost message. Written through STATE only. */
    private volatile int state;

    MsgCore(long handle, MsgCore outer) {
        this.handle = handle;
        root = outer == null ? this : outer.root;
    }

    /** The handle, for this thread alone until {@link #leave}. */
    final long enter() {
        if (!STATE.compareAndSet(root, IDLE, BUSY)) {
            throw refusal();
        }
        return handle;
    }

    final void leave() {
        STATE.setRelease(root, IDLE);
    }

    private RuntimeException refusal() {
        return root.state == CLOSED
                ? new QuorlClosedException(QuorlException.INVALID_MSG, "the message")
                : new ConcurrentModificationException("another thread uses the message at the same time");
    }

    /** Whether this call ended the use of the message for good; waits for a thread that is inside. */
    final boolean enterForClose() {
        for (int turn = 0; !STATE.compareAndSet(root, IDLE, CLOSED); turn++) {
            if (root.state == CLOSED) {
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

    /** For the one who ends the message, or has made it and shown it to nobody. */
    final long ownHandle() {
        return handle;
    }

    final boolean isEnded() {
        return root.state == CLOSED;
    }

    /** For a view, whose life this message bounds: one load, which the closing thread and whoever it told see at once. */
    static void refuseEnded(MsgCore outermost) {
        if ((int) STATE.getOpaque(outermost) == CLOSED) {
            throw new QuorlClosedException(QuorlException.INVALID_MSG, "the view's message");
        }
    }

    final MsgCore outermost() {
        return root;
    }

    final boolean isInside() {
        return root != this;
    }

    final boolean isSameAs(MsgCore other) {
        return root == other.root;
    }

    /** Enters other beside this, which is entered already. Null is refused. */
    final long enterWith(MsgCore other) {
        Objects.requireNonNull(other, "message");
        return other.root == root ? other.handle : other.enter();
    }

    final void leaveWith(MsgCore other) {
        if (other.root != root) {
            other.leave();
        }
    }

    /** Enters one of many beside this. entered holds those whose guards were taken, for the caller to leave. */
    final long enterAmong(Set<MsgCore> entered, MsgCore other) {
        Objects.requireNonNull(other, "message");
        if (other.root != root && !entered.contains(other.root)) {
            other.enter();
            entered.add(other.root);
        }
        return other.handle;
    }

    /** What the natives take behind the handle. */
    final QuorlMsg self() {
        return (QuorlMsg) this;
    }

    // ---- names and ids --------------------------------------------------------------------------------------------

    /** A name to look up. */
    static String known(String name) {
        return Objects.requireNonNull(name, "name");
    }

    /** An id to look up. */
    static int known(int id) {
        if (id < 1 || id > 0xFFFF) {
            throw new IllegalArgumentException("a field's id is 1 to 65535, not " + id);
        }
        return id;
    }

    static byte[] bytes(String name) {
        return Texts.cached(name, "the field's name");
    }

    /** A name to look up, in the form that a view searches for. */
    static Texts.Encoded encoded(String name) {
        return Texts.encoded(known(name), "the field's name");
    }

    /** An id to write. */
    static short id16(int id) {
        if (id < 0 || id > 0xFFFF) {
            throw new IllegalArgumentException("a field's id is 1 to 65535, or 0 for none, not " + id);
        }
        return (short) id;
    }

    static int inRange(long value, long low, long high, String type) {
        if (value < low || value > high) {
            throw new IllegalArgumentException(value + " does not fit " + type + ", " + low + " to " + high);
        }
        return (int) value;
    }

    /** A status with the field that it is about. */
    static QuorlException about(QuorlException e, String name, int id) {
        return e.about(describe(name, id));
    }

    /** As {@link #about} for a number that could not be read, on a message that is entered: with what the field is. */
    final QuorlException unread(QuorlException e, String name, int id, int wanted) {
        if (e.getStatus() != QuorlException.CONVERSION_FAILED) {
            return about(e, name, id);
        }
        long found = find(name, id);
        return found == 0 ? about(e, name, id) : new QuorlException(QuorlException.CONVERSION_FAILED, describe(name, id)
                + ": it is " + QuorlMsgField.typeName(typeIn(found)) + ", and its value is none of "
                + QuorlMsgField.typeName(wanted), e);
    }

    static String describe(String name, int id) {
        return "field " + (name == null ? "" : "\"" + name + "\"") + (id == 0 ? "" : (name == null ? "" : " ") + "id " + id);
    }

    // ---- lookups, on a message that is entered --------------------------------------------------------------------

    /** Where a field is and what it is; 0 when there is none. */
    final long find(String name, int id) {
        byte[] bytes = bytes(name);
        return QuorlMsg.quorlMsg_GetFieldTypeAndIndex(handle, bytes, Texts.length(bytes), (short) id, self());
    }

    /** The index of a field that must be there with that type. */
    final int indexOf(String name, int id, int type) {
        long found = find(name, id);
        if (found == 0) {
            throw new QuorlException(QuorlException.NOT_FOUND, null);
        }
        if (typeIn(found) != type) {
            throw new QuorlException(QuorlException.CONVERSION_FAILED,
                    "it is " + QuorlMsgField.typeName(typeIn(found)) + ", not " + QuorlMsgField.typeName(type));
        }
        return indexIn(found);
    }

    static int typeIn(long found) {
        return (int) (found >>> 32) & 0xFF;
    }

    static int indexIn(long found) {
        long index = (found & 0xFFFF_FFFFL) - 1;
        if (index > LAST_INDEX) {
            throw new QuorlException(QuorlException.INVALID_FIELD,
                    "it is field number " + index + " of its message, and only the first 65,536 can be read");
        }
        return (int) index;
    }

    /** The field's size in bytes, of one element for an array, as the length of a Java array. */
    final int sizeAt(int index) {
        return Math.toIntExact(QuorlMsg.quorlMsg_GetFieldSize(handle, index, self()));
    }

    /** The field's number of elements, as the length of a Java array. */
    final int countAt(int index) {
        return Math.toIntExact(QuorlMsg.quorlMsg_GetFieldCount(handle, index, self()));
    }
}
