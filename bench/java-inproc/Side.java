/** One contender of the Java case. Each has a class loader, and so compiled code, of its own. */
public interface Side {
    /** One run: messages a second from a publisher thread to a subscriber thread. */
    double messagesPerSecond(int size, double seconds) throws Exception;
}
