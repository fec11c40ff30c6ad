package com.vesma.quorl;

import com.vesma.quorl.internal.image.Texts;
import com.vesma.quorl.internal.setup.SettingRefusal;
import com.vesma.quorl.internal.threads.Shutdown;
import java.nio.file.Path;
import java.util.List;
import java.util.Objects;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.concurrent.locks.Condition;
import java.util.concurrent.locks.ReentrantLock;

/**
 * The library as a whole: opening and closing it, and its parameters.
 *
 * <p>Opening nests: each open gives an object of its own, and the library closes with the last of them. The last close
 * ends dispatchers, events and asynchronous requests, waits for the handlers that run on other threads, and destroys what
 * is left; queues and transports that were not closed refuse every use from then on. Messages stay valid. Any thread may
 * open and close.
 *
 * <p>A shutdown hook may close the library, and every object of it. While the virtual machine shuts down, no close waits
 * for a handler that is itself inside {@link System#exit}, which does not return before the hooks have; and for other
 * handlers all closes together wait no longer than 5 seconds.
 *
 * <p>The first use of the library's classes loads its shared objects: from the file or directory that the system
 * property {@code com.vesma.quorl.library} names, else from {@code java.library.path}, else from the jar, which are
 * copied for a moment to {@code com.vesma.quorl.tmpdir} (by default {@code java.io.tmpdir}). An
 * {@link UnsatisfiedLinkError} names every place that was tried. With Java 24 and later, start programs with
 * {@code --enable-native-access=com.vesma.quorl}.
 *
 * <pre>{@code
 * try (Quorl quorl = Quorl.open();
 *      QuorlTransport transport = new QuorlQrdTransport();
 *      QuorlQueue queue = new QuorlQueue();
 *      QuorlListener listener = new QuorlListener(queue, transport, "greeting", (l, m) -> System.out.println(m));
 *      QuorlMsg message = new QuorlMsg("greeting").addString("text", "Hello")) {
 *     transport.send(message);
 *     queue.dispatch();
 * }
 * }</pre>
 */
public final class Quorl implements AutoCloseable {
    private static final ReentrantLock LOCK = new ReentrantLock();
    private static final Condition CLOSED = LOCK.newCondition();

    /** Objects of this class that are open. Guarded by LOCK. */
    private static int openCount;

    /** The thread of the last close while it runs, else null. Guarded by LOCK. */
    private static Thread closing;

    private final AtomicBoolean closed = new AtomicBoolean();

    private Quorl() {}

    /**
     * Opens the library, or counts one more open.
     *
     * @return to be closed
     * @throws QuorlException {@link QuorlException#INIT_FAILURE} when the system refuses a resource
     * @throws UnsatisfiedLinkError if the shared objects cannot be loaded
     */
    public static Quorl open() {
        return openWith(null);
    }

    /**
     * Opens the library with in-process parameters from a file: one {@code name=value} a line, {@code #} starts a comment.
     * When the library is open already, or a parameter was set before, the file must not say otherwise.
     *
     * @param parameters the file, of the default file system
     * @return to be closed
     * @throws QuorlException {@link QuorlException#FILE_NOT_FOUND}, {@link QuorlException#IO_FAILED},
     *     {@link QuorlException#INVALID_FILE}, {@link QuorlException#NOT_PERMITTED}
     */
    public static Quorl open(Path parameters) {
        return openWith(Objects.requireNonNull(parameters, "parameters"));
    }

    private static Quorl openWith(Path parameters) {
        byte[] path = parameters == null ? null : Texts.encode(parameters.toString(), "the path");
        Library.load();
        LOCK.lock();
        try {
            awaitClosed();
            int status = path == null ? quorl_Open() : quorl_OpenEx(path, path.length);
            check(status, quorl_IsOpen() || path == null ? null : SettingRefusal.ofFile(status, parameters));
            openCount++;
            return new Quorl();
        } finally {
            LOCK.unlock();
        }
    }

    /** The last close may wait for this thread's handler, which then must not wait for it. */
    private static void awaitClosed() {
        while (closing != null) {
            if (closing == Thread.currentThread() || Dispatching.current().now != null || Shutdown.holds(closing)
                    || Shutdown.isOver()) {
                throw new QuorlException(QuorlException.NOT_PERMITTED, "the library is being closed");
            }
            Shutdown.await(CLOSED);
        }
    }

    /**
     * Takes this open back; the last one closes the library and waits as the class says. Closing again does nothing.
     *
     * @throws QuorlException {@link QuorlException#DAEMON_NOT_CONNECTED} from the last close, which closes all the same:
     *     messages that daemons' transports had taken since the library was opened were dropped when they closed, or may not
     *     have arrived. The detail says how many, and which daemons; so do advisories on {@code _QUORL.WARN.daemon.dropped},
     *     one for each
     */
    @Override
    public void close() {
        if (!closed.compareAndSet(false, true)) {
            return;
        }
        LOCK.lock();
        try {
            if (--openCount > 0) {
                check(quorl_Close());
                return;
            }
            closing = Thread.currentThread();
        } finally {
            LOCK.unlock();
        }
        int status;
        String losses = null;
        List<String> daemons = List.of();
        try {
            closeWhatIsLeft();
            daemons = ClosingLosses.daemonsInUse();
        } finally {
            EngineQueries.libraryCloses();
            CmDeliveries.libraryCloses();
            status = quorl_Close();
            if (status == QuorlException.DAEMON_NOT_CONNECTED) {
                losses = ClosingLosses.take(wordsOfTheClose(), daemons);
            } else {
                ClosingLosses.clear();
            }
            QuorlEvent.libraryClosed();
            LOCK.lock();
            try {
                closing = null;
                CLOSED.signalAll();
            } finally {
                LOCK.unlock();
            }
        }
        if (status == QuorlException.DAEMON_NOT_CONNECTED) {
            throw new QuorlException(status, losses);
        }
        check(status);
    }

    /**
     * The library's own words for what its last close has just failed in: it is opened for a moment to be asked. Nothing is
     * left that this could take away, as its close takes credentials away.
     */
    private static String wordsOfTheClose() {
        if (quorl_Open() != QuorlException.OK) {
            return null;
        }
        String words = FailureDetail.last();
        EngineQueries.libraryCloses();
        quorl_Close();
        return words;
    }

    /** Each in its turn, whatever becomes of the one before: events that the library ends keep their Java objects for ever. */
    private static void closeWhatIsLeft() {
        try {
            Requests.closeAll();
        } finally {
            try {
                QuorlDispatcher.closeAll();
            } finally {
                QuorlEvent.closeAll();
            }
        }
    }

    /**
     * Sets in-process parameters; the library must not be open. All are checked before any is set.
     *
     * @param parameters {@code name=value} each, for example {@code daemon=nats://localhost:4222}; characters up to
     *     U+FFFF
     * @throws QuorlException {@link QuorlException#NOT_PERMITTED} when the library is open,
     *     {@link QuorlException#INVALID_ARG} for an unknown name or a bad value
     */
    public static void setParameters(String... parameters) {
        Library.load();
        String[] own = Objects.requireNonNull(parameters, "parameters").clone();
        for (String parameter : own) {
            Texts.encode(Objects.requireNonNull(parameter, "parameter"), "the parameter");
            // These cross in the machine's own encoding, which agrees with UTF-8 up to here.
            if (parameter.codePoints().anyMatch(c -> c > 0xFFFF)) {
                throw new IllegalArgumentException("a parameter has a character beyond U+FFFF: " + parameter);
            }
        }
        int status = quorl_SetQRParameters(own, own.length);
        check(status, quorl_IsOpen() ? null : SettingRefusal.ofParameters(status, own));
    }

    /**
     * Makes daemon transports that are created from now on skip waiting for the daemon to say that it is ready.
     */
    public static void disableReadyCheck() {
        Library.load();
        quorl_DisableQRDMReadyCheck();
    }

    /**
     * Whether the library is open in this process.
     *
     * @return whether it is
     */
    public static boolean isOpen() {
        Library.load();
        return quorl_IsOpen();
    }

    /**
     * Whether the library is open with the messaging engine in this process, that is, without a default daemon.
     *
     * @return whether it is
     */
    public static boolean isInProcess() {
        Library.load();
        return quorl_IsIPM();
    }

    /**
     * What the library has counted in this process: messages, queues, objects, how long events waited. Takes some
     * microseconds, more with many queues, and stops nobody.
     *
     * @return as of now
     * @throws QuorlException {@link QuorlException#NOT_INITIALIZED} when the library is not open
     */
    public static QuorlStatistics statistics() {
        Library.load();
        return QuorlStatistics.take();
    }

    /**
     * The version of the library's shared objects.
     *
     * @return "MAJOR.MINOR.PATCH"
     */
    public static String getVersion() {
        Library.load();
        return getCmVersion();
    }

    private static void check(int status) {
        check(status, null);
    }

    /** detail: what is known of the failure here; null to ask the library. */
    private static void check(int status, String detail) {
        if (status != QuorlException.OK) {
            throw detail == null ? new QuorlException(status) : new QuorlException(status, detail);
        }
    }

    static native String getCmVersion();
    static native String getFtVersion();
    static native boolean quorl_IsOpen();
    static native int quorl_Open();
    static native int quorl_Close();
    static native boolean quorl_IsValid(int id, int type);
    static native int quorl_InitializeNative();
    static native void quorl_DisableQRDMReadyCheck();
    static native int quorl_SetQRParameters(String[] array, int arrayLength);
    static native int quorl_OpenEx(byte[] pathnameBytes, int pathnameLength);
    static native boolean quorl_IsIPM();
}
