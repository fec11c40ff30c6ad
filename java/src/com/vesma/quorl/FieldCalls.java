package com.vesma.quorl;

import com.vesma.quorl.internal.image.Fields;
import com.vesma.quorl.internal.image.Texts;
import com.vesma.quorl.internal.image.Wire;
import java.util.Collections;
import java.util.IdentityHashMap;
import java.util.Objects;
import java.util.Set;
import java.util.function.Consumer;
import java.util.function.LongConsumer;
import java.util.function.LongFunction;

/**
 * The steps around a native that adds, updates or reads a field of a {@link QuorlMsg}: the message's guard, the name's bytes,
 * and what a refusal says.
 *
 * <p>Each is written once, and what differs comes as a lambda. The machine inlines both into the public method, where the
 * lambda is known: there is no call through it and no object.
 *
 * <p>The bridge's getters by index read a field as the type that they are named after, whatever it is. So the type is
 * checked here first, behind the guard, which no change can pass.
 */
final class FieldCalls {
    /** The natives' getters use 16 bits of an index. */
    private static final int LAST_INDEX = 0xFFFF;

    private FieldCalls() {}

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
        T get(QuorlMsg message, long handle, int index);
    }

    static void set(QuorlMsg message, String name, int id, int type, Setter setter) {
        byte[] bytes = Fields.bytes(name);
        short id16 = Fields.id16(id);
        long handle = message.enter();
        try {
            setter.set(handle, bytes, Texts.length(bytes), id16);
        } catch (QuorlException e) {
            throw unset(message, e, name, id, type);
        } finally {
            message.leave();
        }
    }

    static long number(QuorlMsg message, String name, int id, int type, NumberGetter getter) {
        byte[] bytes = Fields.bytes(name);
        long handle = message.enter();
        try {
            return getter.get(handle, bytes, Texts.length(bytes), (short) id);
        } catch (QuorlException e) {
            throw unread(message, e, name, id, type);
        } finally {
            message.leave();
        }
    }

    static <T> T value(QuorlMsg message, String name, int id, int type, Getter<T> getter) {
        long handle = message.enter();
        try {
            long found = find(message, name, id);
            if (found == 0) {
                throw Fields.missing(name, id, QuorlMsgField.typeName(type));
            }
            if (typeIn(found) != type && !(type == QuorlMsgField.USER_ANY && typeIn(found) >= QuorlMsgField.USER_FIRST)) {
                throw new QuorlException(
                        QuorlException.CONVERSION_FAILED, Fields.describe(name, id) + ": " + notOf(typeIn(found), type));
            }
            return getter.get(message, handle, indexIn(found, name, id));
        } finally {
            message.leave();
        }
    }

    // ---- messages that go into a message ------------------------------------------------------------------------------

    /** Runs with the handle of a message that is entered beside outer, which is entered already. */
    static void with(QuorlMsg outer, QuorlMsg inner, LongConsumer action) {
        Objects.requireNonNull(inner, "message");
        boolean apart = !inner.isSameAs(outer);
        long handle = apart ? inner.enter() : inner.ownHandle();
        try {
            action.accept(handle);
        } catch (QuorlException e) {
            throw nested(e, outer, handle);
        } finally {
            if (apart) {
                inner.leave();
            }
        }
    }

    /** As {@link #with}, of many; one that stands there twice is entered once. */
    static void withEach(QuorlMsg outer, QuorlMsg[] inner, Consumer<long[]> action) {
        long[] handles = new long[inner.length];
        Set<Object> guards = Collections.newSetFromMap(new IdentityHashMap<>());
        guards.add(outer.guard());
        int entered = 0;
        boolean[] apart = new boolean[inner.length];
        try {
            for (; entered < inner.length; entered++) {
                QuorlMsg each = Objects.requireNonNull(inner[entered], "message");
                if (!guards.contains(each.guard())) {
                    each.enter();
                    apart[entered] = guards.add(each.guard());
                }
                handles[entered] = each.ownHandle();
            }
            action.accept(handles);
        } catch (QuorlException e) {
            throw entered < inner.length ? e : nested(e, outer, handles);
        } finally {
            for (int i = 0; i < entered; i++) {
                if (apart[i]) {
                    inner[i].leave();
                }
            }
        }
    }

    /** What the library said when messages were put inside: when all of them are alive, they are nested too deeply. */
    private static QuorlException nested(QuorlException e, QuorlMsg outer, long... inner) {
        if (e.getStatus() != QuorlException.INVALID_MSG) {
            return e;
        }
        QuorlMsg.quorlMsg_GetByteSize(outer.ownHandle(), null);
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

    /** What the library said of a message inside another. */
    static QuorlException gone(QuorlException e) {
        return e.getStatus() != QuorlException.INVALID_MSG ? e
                : QuorlClosedException.says(QuorlException.INVALID_MSG,
                        "the message inside another has ended, since that was changed; get it again");
    }

    // ---- lookups, on a message that is entered ------------------------------------------------------------------------

    /** Where a field is and what it is; 0 when there is none. */
    static long find(QuorlMsg message, String name, int id) {
        byte[] bytes = Fields.bytes(name);
        return QuorlMsg.quorlMsg_GetFieldTypeAndIndex(message.ownHandle(), bytes, Texts.length(bytes), (short) id, message);
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
            throw new QuorlException(QuorlException.INVALID_FIELD, Fields.describe(name, id) + ": it is field number "
                    + Integer.toUnsignedLong(index) + " of its message, and only the first 65,536 can be read");
        }
        return index;
    }

    /** The field's size in bytes, of one element for an array, as the length of a Java array. */
    static int sizeAt(QuorlMsg message, long handle, int index) {
        return Math.toIntExact(QuorlMsg.quorlMsg_GetFieldSize(handle, index, message));
    }

    /** The field's number of elements, as the length of a Java array. */
    static int countAt(QuorlMsg message, long handle, int index) {
        return Math.toIntExact(QuorlMsg.quorlMsg_GetFieldCount(handle, index, message));
    }

    // ---- what refusals say, on a message that is entered --------------------------------------------------------------

    /** For a number that could not be read: with what the field is. */
    private static QuorlException unread(QuorlMsg message, QuorlException e, String name, int id, int wanted) {
        long found = e.getStatus() == QuorlException.CONVERSION_FAILED ? find(message, name, id) : 0;
        if (found == 0) {
            return e.getStatus() == QuorlException.NOT_FOUND
                    ? Fields.missing(name, id, QuorlMsgField.typeName(wanted)) : Fields.about(e, name, id);
        }
        int type = typeIn(found);
        String text = type > QuorlMsgField.F64 || indexIn(found) != (char) indexIn(found)
                ? notOf(type, wanted)
                : QuorlMsgField.typeName(type) + " "
                        + new QuorlMsgField(message, indexIn(found), name, id, type, 1, 0).scalar(message.ownHandle())
                        + " does not fit " + QuorlMsgField.typeName(wanted);
        return new QuorlException(QuorlException.CONVERSION_FAILED, Fields.describe(name, id) + ": " + text, e);
    }

    private static String notOf(int type, int wanted) {
        return "it is " + QuorlMsgField.typeName(type) + ", not " + QuorlMsgField.typeName(wanted);
    }

    /** For a field that could not be added or updated. */
    private static QuorlException unset(QuorlMsg message, QuorlException e, String name, int id, int type) {
        String wanted = QuorlMsgField.typeName(type);
        switch (e.getStatus()) {
            case QuorlException.INVALID_TYPE:
                return withFound(message, e, name, id, found -> notOf(typeIn(found), type));
            case QuorlException.ID_IN_USE:
                return withFound(message, e, null, id, found -> wanted
                        + (name == null ? " without a name" : " \"" + name + "\"") + " has the id of field number "
                        + Integer.toUnsignedLong(indexIn(found)) + ", " + QuorlMsgField.typeName(typeIn(found)));
            case QuorlException.INVALID_SIZE:
                return new QuorlException(QuorlException.INVALID_SIZE, Fields.describe(name, id) + ": with this " + wanted
                        + " the message would be larger than " + Wire.SIZE_MAX + " bytes", e);
            default:
                return Fields.about(e, name, id);
        }
    }

    private static QuorlException withFound(
            QuorlMsg message, QuorlException e, String name, int id, LongFunction<String> text) {
        long found = find(message, name, id);
        return found == 0 ? Fields.about(e, name, id)
                : new QuorlException(e.getStatus(), Fields.describe(name, id) + ": " + text.apply(found), e);
    }
}
