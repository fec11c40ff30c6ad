package com.vesma.quorl;

import com.vesma.quorl.internal.setup.NativeFiles;
import java.util.concurrent.locks.ReentrantLock;

/**
 * Loads the shared objects, once for the process, and sees whether they belong to these classes.
 *
 * <p>Nothing here hangs on a class initializer: the bridge looks classes up while it starts, and two threads that
 * initialize classes towards each other would wait for ever.
 */
final class Library {
    /** Shared objects of another major version have other rules. */
    private static final String MAJOR = "1";

    /** The classes that the bridge looks up as it starts. */
    private static final String[] LOOKED_UP = {
        "QuorlException", "QuorlListener", "QuorlTimer", "QuorlCmReviewLedgerInfo", "QuorlEvent", "QuorlVectorListener"
    };

    private static final ReentrantLock LOCK = new ReentrantLock();

    private static volatile boolean loaded;

    private Library() {}

    /** Loads the library unless that is done. Every way into a native begins here. */
    static void load() {
        if (!loaded) {
            loadOnce();
        }
    }

    private static void loadOnce() {
        LOCK.lock();
        try {
            if (loaded) {
                return;
            }
            for (String name : LOOKED_UP) {
                Class.forName("com.vesma.quorl." + name, true, Library.class.getClassLoader());
            }
            NativeFiles.load();
            checkVersion("certified delivery", Quorl.getCmVersion());
            checkVersion("fault tolerance", Quorl.getFtVersion());
            if (Quorl.quorl_InitializeNative() != 0) {
                throw new UnsatisfiedLinkError("the Quorl bridge could not be initialized");
            }
            loaded = true;
        } catch (ClassNotFoundException e) {
            throw new NoClassDefFoundError(e.getMessage());
        } finally {
            LOCK.unlock();
        }
    }

    private static void checkVersion(String what, String version) {
        if (!version.equals(MAJOR) && !version.startsWith(MAJOR + ".")) {
            throw new UnsatisfiedLinkError("the Quorl library for " + what + " has version " + version
                    + ", but these classes need " + MAJOR + ".x: check which shared objects are found first");
        }
    }
}
