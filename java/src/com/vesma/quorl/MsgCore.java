package com.vesma.quorl;

import java.lang.invoke.MethodHandles;
import java.lang.invoke.VarHandle;
import java.util.ConcurrentModificationException;
import java.util.Locale;
import java.util.Objects;
import java.util.Set;
import java.util.concurrent.locks.LockSupport;
import java.util.function.LongFunction;

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
    private static final int LAST_INDEX = 0xFFFF;

    private final long handle;

    /** The outermost message, this one itself when it is nobody's. */
    private final MsgCore root;

    /** Of the outermost message. Written through STATE only. */
    private volatile int state;

    /** Null of most messages, so that they are no larger. Of messages that are in no other; made by who has entered. */
    private volatile Rare rare;

    /** What few messages need. */
    private static final class Rare {
        /** Frees a message that came to be the program's, if that forgets it; null for any other. */
        volatile ForgottenMessages.Watch watch;

        /** How often fields have gone, so that those behind them have other positions. Used by who has entered. */
        int removals;
    }

    MsgCore(long handle, MsgCore outer) {
        this.handle = handle;
        root = outer == null ? this : outer.root;
    }

    /** The handle, for this thread alone until {@link #leave}. */
    final long enter() {
        if (!STATE.compareAndSet(root, IDLE, BUSY)) {
            throw refusal();
        }
        if (root != this) {
            refuseGone();
        }
        return handle;
    }

    /**
     * A message inside another ends with each change of that, which the library knows by its handle. Some natives would answer
     * as for a message without fields. On a message that is entered; leaves it when it is gone.
     */
    private void refuseGone() {
        try {
            QuorlMsg.quorlMsg_GetByteSize(handle, null);
        } catch (QuorlException e) {
            leave();
            throw gone(e);
        }
    }

    private static QuorlException gone(QuorlException e) {
        return e.getStatus() != QuorlException.INVALID_MSG ? e
                : QuorlClosedException.says(QuorlException.INVALID_MSG,
                        "the message inside another has ended, since that was changed; get it again");
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

    /** Fields were removed from this message, which is entered. */
    final void fieldsHaveMoved() {
        rare().removals++;
    }

    /** On a message that is entered: a number that is another one as soon as fields may have other positions. */
    final int removals() {
        Rare own = rare;
        return own == null ? 0 : own.removals;
    }

    private Rare rare() {
        Rare own = rare;
        if (own == null) {
            own = new Rare();
            rare = own;
        }
        return own;
    }

    /** Makes a message the program's, which is entered. A message inside another is that one's, whatever is done. */
    final void watch() {
        if (root == this && !isWatched()) {
            rare().watch = ForgottenMessages.watch(self(), handle);
        }
    }

    /** Whether the message is the program's. */
    final boolean isWatched() {
        Rare own = rare;
        return own != null && own.watch != null;
    }

    /** For the one who ends the message. */
    final void endWatch() {
        if (isWatched()) {
            rare.watch.end();
        }
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
        return name == null ? null : encoded(name).bytes;
    }

    /** A name in the form that a view searches for. */
    static Texts.Encoded encoded(String name) {
        try {
            return Texts.encoded(name, "the name");
        } catch (IllegalArgumentException e) {
            throw about(e, name, 0);
        }
    }

    /** An id to write. */
    static short id16(int id) {
        if (id < 0 || id > 0xFFFF) {
            throw new IllegalArgumentException("a field's id is 1 to 65535, or 0 for none, not " + id);
        }
        return (short) id;
    }

    // ---- values to write ------------------------------------------------------------------------------------------

    /** A number that its type holds. */
    static int fit(long value, long low, long high, int type, String name, int id) {
        if (value < low || value > high) {
            throw new IllegalArgumentException(
                    describe(name, id) + ": " + unfit(value, low, high, QuorlMsgField.typeName(type)));
        }
        return (int) value;
    }

    /** As {@link #fit}, for a caller that names the field itself. */
    static int inRange(long value, long low, long high, String type) {
        if (value < low || value > high) {
            throw new IllegalArgumentException(unfit(value, low, high, type));
        }
        return (int) value;
    }

    static String unfit(long value, long low, long high, String type) {
        return value + " does not fit " + type + ", " + low + " to " + high;
    }

    /** A value that is there. */
    static <T> T given(T value, int type, String name, int id) {
        if (value == null) {
            throw new NullPointerException(describe(name, id) + ": its " + QuorlMsgField.typeName(type) + " is null");
        }
        return value;
    }

    static IllegalArgumentException about(IllegalArgumentException e, String name, int id) {
        return new IllegalArgumentException(describe(name, id) + ": " + e.getMessage(), e);
    }

    // ---- what refusals say ----------------------------------------------------------------------------------------

    /** A status with the field that it is about. */
    static QuorlException about(QuorlException e, String name, int id) {
        return e.about(describe(name, id));
    }

    /** As {@link #about} for a number that could not be read, on a message that is entered: with what the field is. */
    private QuorlException unread(QuorlException e, String name, int id, int wanted) {
        long found = e.getStatus() == QuorlException.CONVERSION_FAILED ? find(name, id) : 0;
        if (found == 0) {
            return e.getStatus() == QuorlException.NOT_FOUND ? missing(name, id, QuorlMsgField.typeName(wanted)) : about(e, name, id);
        }
        int type = typeIn(found);
        String text = type > QuorlMsgField.F64 || indexIn(found) != (char) indexIn(found)
                ? notOf(type, wanted)
                : QuorlMsgField.typeName(type) + " " + new QuorlMsgField(self(), indexIn(found), name, id, type, 1, 0).scalar(handle)
                        + " does not fit " + QuorlMsgField.typeName(wanted);
        return new QuorlException(QuorlException.CONVERSION_FAILED, describe(name, id) + ": " + text, e);
    }

    private static String notOf(int type, int wanted) {
        return "it is " + QuorlMsgField.typeName(type) + ", not " + QuorlMsgField.typeName(wanted);
    }

    /** As {@link #about} for a field that could not be added or updated, on a message that is entered. */
    private QuorlException unset(QuorlException e, String name, int id, int type) {
        String wanted = QuorlMsgField.typeName(type);
        switch (e.getStatus()) {
            case QuorlException.INVALID_TYPE:
                return withFound(e, name, id, found -> notOf(typeIn(found), type));
            case QuorlException.ID_IN_USE:
                return withFound(e, null, id, found -> wanted
                        + (name == null ? " without a name" : " \"" + name + "\"") + " has the id of field number "
                        + Integer.toUnsignedLong(indexIn(found)) + ", " + QuorlMsgField.typeName(typeIn(found)));
            case QuorlException.INVALID_SIZE:
                return new QuorlException(QuorlException.INVALID_SIZE, describe(name, id) + ": with this " + wanted
                        + " the message would be larger than " + Wire.SIZE_MAX + " bytes", e);
            default:
                return about(e, name, id);
        }
    }

    /** What the library said when messages were put inside: when all of them are alive, they are nested too deeply. */
    final QuorlException nested(QuorlException e, long... inner) {
        if (e.getStatus() != QuorlException.INVALID_MSG) {
            return e;
        }
        QuorlMsg.quorlMsg_GetByteSize(handle, null);
        for (long each : inner) {
            try {
                QuorlMsg.quorlMsg_GetByteSize(each, null);
            } catch (QuorlException ended) {
                return gone(ended);
            }
        }
        return new QuorlException(
                QuorlException.INVALID_MSG, "messages would be nested to more than " + Wire.DEPTH_MAX + " levels", e);
    }

    private QuorlException withFound(QuorlException e, String name, int id, LongFunction<String> text) {
        long found = find(name, id);
        return found == 0 ? about(e, name, id)
                : new QuorlException(e.getStatus(), describe(name, id) + ": " + text.apply(found), e);
    }

    static QuorlException missing(String name, int id, String wanted) {
        return new QuorlException(QuorlException.NOT_FOUND, describe(name, id) + " of type " + wanted);
    }

    /** A name as it can be shown: not too long, and without what is no character. */
    static String describe(String name, int id) {
        StringBuilder text = new StringBuilder("field ");
        if (name != null) {
            text.append('"');
            for (int i = 0; i < Math.min(name.length(), Wire.NAME_MAX); i++) {
                char c = name.charAt(i);
                if (c < ' ' || Texts.isHalf(name, i)) {
                    text.append(String.format(Locale.ROOT, "\\u%04x", (int) c));
                } else {
                    text.append(c);
                }
            }
            text.append(name.length() > Wire.NAME_MAX ? "...\" of " + name.length() + " characters" : "\"");
        }
        return text.append(id == 0 ? "" : (name == null ? "" : " ") + "id " + id).toString();
    }

    // ---- the steps around a native --------------------------------------------------------------------------------

    // Each is written once, and what differs comes as a lambda. The machine inlines both into the public method, where
    // the lambda is known: there is no call through it and no object.

    /** A native that adds or updates a field by its name and id. */
    interface Setter {
        void set(long handle, byte[] name, int nameLength, short id);
    }

    /** A native that reads a number by its name and id, as the number or as 0 and 1. */
    interface NumberGetter {
        long get(long handle, byte[] name, int nameLength, short id);
    }

    /** A native that reads a field by its position, whose type was checked. */
    interface Getter<T> {
        T get(long handle, int index);
    }

    final QuorlMsg set(String name, int id, int type, Setter setter) {
        byte[] bytes = bytes(name);
        short id16 = id16(id);
        long handle = enter();
        try {
            setter.set(handle, bytes, Texts.length(bytes), id16);
            return self();
        } catch (QuorlException e) {
            throw unset(e, name, id, type);
        } finally {
            leave();
        }
    }

    final long number(String name, int id, int type, NumberGetter getter) {
        byte[] bytes = bytes(name);
        long handle = enter();
        try {
            return getter.get(handle, bytes, Texts.length(bytes), (short) id);
        } catch (QuorlException e) {
            throw unread(e, name, id, type);
        } finally {
            leave();
        }
    }

    final <T> T value(String name, int id, int type, Getter<T> getter) {
        long handle = enter();
        try {
            long found = find(name, id);
            if (found == 0) {
                throw missing(name, id, QuorlMsgField.typeName(type));
            }
            if (typeIn(found) != type && !(type == QuorlMsgField.USER_ANY && typeIn(found) >= QuorlMsgField.USER_FIRST)) {
                throw new QuorlException(
                        QuorlException.CONVERSION_FAILED, describe(name, id) + ": " + notOf(typeIn(found), type));
            }
            return getter.get(handle, indexIn(found, name, id));
        } finally {
            leave();
        }
    }

    // ---- lookups, on a message that is entered --------------------------------------------------------------------

    /** Where a field is and what it is; 0 when there is none. */
    final long find(String name, int id) {
        byte[] bytes = bytes(name);
        return QuorlMsg.quorlMsg_GetFieldTypeAndIndex(handle, bytes, Texts.length(bytes), (short) id, self());
    }

    static int typeIn(long found) {
        return (int) (found >>> 32) & 0xFF;
    }

    static int indexIn(long found) {
        return (int) found - 1;
    }

    /** An index that the natives' getters can take. */
    static int indexIn(long found, String name, int id) {
        int index = indexIn(found);
        if (index < 0 || index > LAST_INDEX) {
            throw new QuorlException(QuorlException.INVALID_FIELD, describe(name, id) + ": it is field number "
                    + Integer.toUnsignedLong(index) + " of its message, and only the first 65,536 can be read");
        }
        return index;
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
