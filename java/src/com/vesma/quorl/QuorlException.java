package com.vesma.quorl;

import com.vesma.quorl.internal.image.ApiAccess;

/**
 * A call that the library refused.
 *
 * <p>It carries one of the library's statuses, whose numbers are those of the C interface and never change. It is
 * unchecked: most statuses tell of a mistake in the program or of an object that is gone, nearly every call can meet
 * one, and a program treats them in one place or not at all. The few outcomes that a program must expect are no
 * exceptions here: a dispatch or a request that found nothing in time says so by its result.
 *
 * <p>The message ends with the library's own words for the failure, for example which daemon was tried and what it said;
 * {@link #getDetail} has them alone.
 *
 * <p>Mistakes that the Java classes see before the library is asked (a null, a number out of range, a text with an
 * embedded zero) are the usual {@link NullPointerException} and {@link IllegalArgumentException}; use after close is
 * a {@link QuorlClosedException}.
 *
 * <pre>{@code
 * try {
 *     transport.send(message);
 * } catch (QuorlException e) {
 *     if (e.getStatus() != QuorlException.DAEMON_NOT_CONNECTED) {
 *         throw e;
 *     }
 * }
 * }</pre>
 */
public class QuorlException extends RuntimeException {
    /** 0: success. */
    public static final int OK = 0;
    /** 1: the library could not be initialized. */
    public static final int INIT_FAILURE = 1;
    /** 2: the transport does not exist or was destroyed. */
    public static final int INVALID_TRANSPORT = 2;
    /** 3: an argument is not valid. */
    public static final int INVALID_ARG = 3;
    /** 4: the library is not open. */
    public static final int NOT_INITIALIZED = 4;
    /** 5: two arguments contradict each other. */
    public static final int ARG_CONFLICT = 5;
    /** 16: the service is not known or malformed. */
    public static final int SERVICE_NOT_FOUND = 16;
    /** 17: the network is not known or malformed. */
    public static final int NETWORK_NOT_FOUND = 17;
    /** 18: the daemon could not be reached. */
    public static final int DAEMON_NOT_FOUND = 18;
    /** 19: memory could not be allocated. */
    public static final int NO_MEMORY = 19;
    /** 20: the subject is malformed or not allowed here. */
    public static final int INVALID_SUBJECT = 20;
    /** 21: the connection to the daemon is lost. */
    public static final int DAEMON_NOT_CONNECTED = 21;
    /** 22: two components have versions that do not work together. */
    public static final int VERSION_MISMATCH = 22;
    /** 23: the subject is taken by another sender. */
    public static final int SUBJECT_COLLISION = 23;
    /** 24: the virtual circuit is not connected. */
    public static final int VC_NOT_CONNECTED = 24;
    /** 27: the operation is not permitted. */
    public static final int NOT_PERMITTED = 27;
    /** 30: the name is malformed or too long. */
    public static final int INVALID_NAME = 30;
    /** 31: the type does not exist or is not the field's. */
    public static final int INVALID_TYPE = 31;
    /** 32: the size is not valid. */
    public static final int INVALID_SIZE = 32;
    /** 33: the count is not valid. */
    public static final int INVALID_COUNT = 33;
    /** 35: not found. */
    public static final int NOT_FOUND = 35;
    /** 36: the field id is in use in this message. */
    public static final int ID_IN_USE = 36;
    /** 37: the field with this id has another name. */
    public static final int ID_CONFLICT = 37;
    /** 38: the value does not fit the type asked for. */
    public static final int CONVERSION_FAILED = 38;
    /** 39: the handler type is reserved. */
    public static final int RESERVED_HANDLER = 39;
    /** 40: the encoder failed. */
    public static final int ENCODER_FAILED = 40;
    /** 41: the decoder failed. */
    public static final int DECODER_FAILED = 41;
    /** 42: the message does not exist or was destroyed. */
    public static final int INVALID_MSG = 42;
    /** 43: the field is not valid. */
    public static final int INVALID_FIELD = 43;
    /** 44: the instance number is not valid. */
    public static final int INVALID_INSTANCE = 44;
    /** 45: the message's bytes are corrupt. */
    public static final int CORRUPT_MSG = 45;
    /** 46: the text encodings differ. */
    public static final int ENCODING_MISMATCH = 46;
    /** 50: the time limit has passed. */
    public static final int TIMEOUT = 50;
    /** 51: the wait was interrupted. */
    public static final int INTR = 51;
    /** 52: the queue or queue group does not exist or was destroyed. */
    public static final int INVALID_DISPATCHABLE = 52;
    /** 53: the dispatcher does not exist or was destroyed. */
    public static final int INVALID_DISPATCHER = 53;
    /** 60: the event does not exist or was destroyed. */
    public static final int INVALID_EVENT = 60;
    /** 61: the callback is missing. */
    public static final int INVALID_CALLBACK = 61;
    /** 62: the queue does not exist or was destroyed. */
    public static final int INVALID_QUEUE = 62;
    /** 63: the queue group does not exist or was destroyed. */
    public static final int INVALID_QUEUE_GROUP = 63;
    /** 64: the time interval is negative or not finite. */
    public static final int INVALID_TIME_INTERVAL = 64;
    /** 65: the input or output source is not valid. */
    public static final int INVALID_IO_SOURCE = 65;
    /** 66: the input or output condition is not valid. */
    public static final int INVALID_IO_CONDITION = 66;
    /** 67: the system's limit of sockets is reached. */
    public static final int SOCKET_LIMIT = 67;
    /** 68: a call to the operating system failed. */
    public static final int OS_ERROR = 68;
    /** 70: the buffer is too small. */
    public static final int INSUFFICIENT_BUFFER = 70;
    /** 71: the end of the file is reached. */
    public static final int EOF = 71;
    /** 72: the file is damaged or of another kind. */
    public static final int INVALID_FILE = 72;
    /** 73: the file does not exist. */
    public static final int FILE_NOT_FOUND = 73;
    /** 74: reading or writing failed. */
    public static final int IO_FAILED = 74;
    /** 80: the file is in use, or belongs to another user or another certified name. */
    public static final int NOT_FILE_OWNER = 80;
    /** 81: the user name or the password is missing or wrong. */
    public static final int USERPASS_MISMATCH = 81;
    /** 90: there are too many neighbors. */
    public static final int TOO_MANY_NEIGHBORS = 90;
    /** 91: it exists already. */
    public static final int ALREADY_EXISTS = 91;
    /** 100: the port is in use. */
    public static final int PORT_BUSY = 100;
    /** 101: the message could not be delivered. */
    public static final int DELIVERY_FAILED = 101;
    /** 102: the queue's limit is reached. */
    public static final int QUEUE_LIMIT = 102;
    /** 110: the content description is not valid. */
    public static final int INVALID_CONTENT_DESC = 110;
    /** 111: the serialized buffer is not valid. */
    public static final int INVALID_SERIALIZED_BUFFER = 111;
    /** 115: the descriptor does not exist. */
    public static final int DESCRIPTOR_NOT_FOUND = 115;
    /** 116: the serialized buffer is corrupt. */
    public static final int CORRUPT_SERIALIZED_BUFFER = 116;
    /** 117: this works only with the engine in this process. */
    public static final int IPM_ONLY = 117;

    private static final long serialVersionUID = 1L;

    static {
        ApiAccess.install(new ForInternals());
    }

    private final int status;

    /** What is known beyond the status, null for nothing. */
    private final String detail;

    /** Whether the detail is the library's own. */
    private final boolean fromLibrary;

    /** The bridge calls this constructor, on the thread that the library has just refused. */
    QuorlException(int status) {
        this(status, FailureDetail.of(status), null, true);
    }

    /** For statuses that the Java classes give themselves, with what they know beyond the number. */
    QuorlException(int status, String detail) {
        this(status, detail, null);
    }

    QuorlException(int status, String detail, Throwable cause) {
        this(status, detail, cause, false);
    }

    /** The same failure as another class, from the same place: a cause would say it twice. */
    QuorlException(QuorlException same) {
        this(same.status, same.detail, same.getCause(), same.fromLibrary);
        setStackTrace(same.getStackTrace());
    }

    private QuorlException(int status, String detail, Throwable cause, boolean fromLibrary) {
        super(text(status) + " (status " + status + ")" + (detail == null ? "" : ": " + detail), cause);
        this.status = status;
        this.detail = detail;
        this.fromLibrary = fromLibrary;
    }

    /** The same status with what it is about in front of what is known already. */
    QuorlException about(String what) {
        // Of a field that is not there, the library can say no more than its name either.
        boolean nothingMore = detail == null || detail.equals(FailureDetail.CLOSED) || (fromLibrary && status == NOT_FOUND);
        return new QuorlException(status, nothingMore ? what : what + ": " + detail, this);
    }

    /**
     * What is known of this failure beyond its status: which object, field or daemon, and why.
     *
     * @return text for a person, whose wording may change; null when nothing more is known
     */
    public String getDetail() {
        return detail;
    }

    /**
     * The library's status.
     *
     * @return one of the constants of this class, or a number that a newer library knows
     */
    public int getStatus() {
        return status;
    }

    /**
     * What a status means, in English.
     *
     * @param status one of the constants of this class
     * @return one sentence without a full stop; "Unknown status" for any other number
     */
    public static String text(int status) {
        switch (status) {
            case OK:
                return "Success";
            case INIT_FAILURE:
                return "The library could not be initialized";
            case INVALID_TRANSPORT:
                return "The transport does not exist or was destroyed";
            case INVALID_ARG:
                return "An argument is not valid";
            case NOT_INITIALIZED:
                return "The library is not open";
            case ARG_CONFLICT:
                return "Two arguments contradict each other";
            case SERVICE_NOT_FOUND:
                return "The service is not known or malformed";
            case NETWORK_NOT_FOUND:
                return "The network is not known or malformed";
            case DAEMON_NOT_FOUND:
                return "The daemon could not be reached";
            case NO_MEMORY:
                return "Memory could not be allocated";
            case INVALID_SUBJECT:
                return "The subject is malformed or not allowed here";
            case DAEMON_NOT_CONNECTED:
                return "The connection to the daemon is lost";
            case VERSION_MISMATCH:
                return "Two components have versions that do not work together";
            case SUBJECT_COLLISION:
                return "The subject is taken by another sender";
            case VC_NOT_CONNECTED:
                return "The virtual circuit is not connected";
            case NOT_PERMITTED:
                return "The operation is not permitted";
            case INVALID_NAME:
                return "The name is malformed or too long";
            case INVALID_TYPE:
                return "The type does not exist or is not the field's";
            case INVALID_SIZE:
                return "The size is not valid";
            case INVALID_COUNT:
                return "The count is not valid";
            case NOT_FOUND:
                return "Not found";
            case ID_IN_USE:
                return "The field id is in use in this message";
            case ID_CONFLICT:
                return "The field with this id has another name";
            case CONVERSION_FAILED:
                return "The value does not fit the type asked for";
            case RESERVED_HANDLER:
                return "The handler type is reserved";
            case ENCODER_FAILED:
                return "The encoder failed";
            case DECODER_FAILED:
                return "The decoder failed";
            case INVALID_MSG:
                return "The message does not exist or was destroyed";
            case INVALID_FIELD:
                return "The field is not valid";
            case INVALID_INSTANCE:
                return "The instance number is not valid";
            case CORRUPT_MSG:
                return "The message's bytes are corrupt";
            case ENCODING_MISMATCH:
                return "The text encodings differ";
            case TIMEOUT:
                return "The time limit has passed";
            case INTR:
                return "The wait was interrupted";
            case INVALID_DISPATCHABLE:
                return "The queue or queue group does not exist or was destroyed";
            case INVALID_DISPATCHER:
                return "The dispatcher does not exist or was destroyed";
            case INVALID_EVENT:
                return "The event does not exist or was destroyed";
            case INVALID_CALLBACK:
                return "The callback is missing";
            case INVALID_QUEUE:
                return "The queue does not exist or was destroyed";
            case INVALID_QUEUE_GROUP:
                return "The queue group does not exist or was destroyed";
            case INVALID_TIME_INTERVAL:
                return "The time interval is negative or not finite";
            case INVALID_IO_SOURCE:
                return "The input or output source is not valid";
            case INVALID_IO_CONDITION:
                return "The input or output condition is not valid";
            case SOCKET_LIMIT:
                return "The system's limit of sockets is reached";
            case OS_ERROR:
                return "A call to the operating system failed";
            case INSUFFICIENT_BUFFER:
                return "The buffer is too small";
            case EOF:
                return "The end of the file is reached";
            case INVALID_FILE:
                return "The file is damaged or of another kind";
            case FILE_NOT_FOUND:
                return "The file does not exist";
            case IO_FAILED:
                return "Reading or writing failed";
            case NOT_FILE_OWNER:
                return "The file is in use, or belongs to another user or another certified name";
            case USERPASS_MISMATCH:
                return "The user name or the password is missing or wrong";
            case TOO_MANY_NEIGHBORS:
                return "There are too many neighbors";
            case ALREADY_EXISTS:
                return "It exists already";
            case PORT_BUSY:
                return "The port is in use";
            case DELIVERY_FAILED:
                return "The message could not be delivered";
            case QUEUE_LIMIT:
                return "The queue's limit is reached";
            case INVALID_CONTENT_DESC:
                return "The content description is not valid";
            case INVALID_SERIALIZED_BUFFER:
                return "The serialized buffer is not valid";
            case DESCRIPTOR_NOT_FOUND:
                return "The descriptor does not exist";
            case CORRUPT_SERIALIZED_BUFFER:
                return "The serialized buffer is corrupt";
            case IPM_ONLY:
                return "This works only with the engine in this process";
            default:
                return "Unknown status";
        }
    }
}
