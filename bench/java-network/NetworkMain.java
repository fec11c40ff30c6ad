import com.vesma.quorl.Quorl;

/** One run of the stream of java-inproc over a daemon: arguments are its address, the size, seconds, seconds of warm-up. */
public final class NetworkMain {
    private NetworkMain() {}

    public static void main(String[] arguments) throws Exception {
        Quorl.setParameters("daemon=" + arguments[0]);
        int size = Integer.parseInt(arguments[1]);
        // As far ahead of the receiver as the native contenders are.
        Stream.window(Math.min(65536, (16 << 20) / size));
        Side side = new QuorlSide();
        side.messagesPerSecond(size, Double.parseDouble(arguments[3]));
        System.out.println(side.messagesPerSecond(size, Double.parseDouble(arguments[2])));
    }
}
