package com.vesma.quorl.internal.image;

import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlMsgView;

/**
 * What the internal packages need of the API's classes and a program must not have: to make their exceptions and views. The
 * package of the API installs it when its exception class is initialized.
 */
public abstract class ApiAccess {
    private static volatile ApiAccess installed;

    /** The one that was installed, in a constant that the compiler of the machine sees through. */
    private static final class Holder {
        static final ApiAccess API = get();

        private static ApiAccess get() {
            // Initializes the class that installs it.
            QuorlException.text(QuorlException.OK);
            return installed;
        }
    }

    protected ApiAccess() {}

    public static void install(ApiAccess access) {
        installed = access;
    }

    protected abstract QuorlException make(int status, String detail, Throwable cause);

    protected abstract QuorlException makeClosed(int status, String what);

    protected abstract QuorlException prefix(QuorlException e, String what);

    protected abstract QuorlMsgView makeView(MessageGuard owner, byte[] bytes, int start, int end);

    protected abstract MessageImage imageOf(QuorlMsgView view);

    /** A failure that Java found, with what is known beyond the status. */
    public static QuorlException failure(int status, String detail) {
        return Holder.API.make(status, detail, null);
    }

    public static QuorlException failure(int status, String detail, Throwable cause) {
        return Holder.API.make(status, detail, cause);
    }

    /** The refusal of what is closed. */
    public static QuorlException closed(int status, String what) {
        return Holder.API.makeClosed(status, what);
    }

    /** The same status with what it is about in front of what is known already. */
    public static QuorlException about(QuorlException e, String what) {
        return Holder.API.prefix(e, what);
    }

    /** owner: as {@link MessageImage} has it. */
    public static QuorlMsgView view(MessageGuard owner, byte[] bytes, int start, int end) {
        return Holder.API.makeView(owner, bytes, start, end);
    }

    /** To read from now. */
    public static MessageImage image(QuorlMsgView view) {
        return Holder.API.imageOf(view);
    }
}
