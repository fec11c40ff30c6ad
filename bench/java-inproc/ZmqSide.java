import org.zeromq.ZMQ;

/**
 * PUB and SUB over inproc of org.zeromq. Two libraries have these classes, one over native code and one in Java: the class
 * path decides. Neither can make a publisher wait at its high-water mark, so there is none, and the window paces it.
 */
public final class ZmqSide implements Side {
    @Override
    public double messagesPerSecond(int size, double seconds) throws Exception {
        ZMQ.Context context = ZMQ.context(1);
        ZMQ.Socket out = socket(context, ZMQ.PUB);
        out.bind("inproc://stream");
        Stream stream = new Stream(size);
        Thread subscriber = new Thread(() -> {
            ZMQ.Socket in = socket(context, ZMQ.SUB);
            in.subscribe(new byte[0]);
            in.connect("inproc://stream");
            byte[] bytes = new byte[size];
            int length;
            do {
                length = in.recv(bytes, 0, size, 0);
                if (length < 0) {
                    throw new IllegalStateException("receive failed");
                }
            } while (stream.on(bytes, length));
            in.close();
        });
        subscriber.start();
        double rate = stream.publish(seconds, bytes -> {
            if (!out.send(bytes, 0, size, 0)) {
                throw new IllegalStateException("send failed");
            }
        });
        subscriber.join();
        out.close();
        context.term();
        return rate;
    }

    private static ZMQ.Socket socket(ZMQ.Context context, int type) {
        ZMQ.Socket socket = context.socket(type);
        socket.setSndHWM(0);
        socket.setRcvHWM(0);
        if (socket.getSndHWM() != 0 || socket.getRcvHWM() != 0) {
            throw new IllegalStateException("the high-water mark was not taken");
        }
        socket.setLinger(0);
        return socket;
    }
}
