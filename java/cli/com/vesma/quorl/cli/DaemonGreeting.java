package com.vesma.quorl.cli;

import java.io.IOException;
import java.io.InputStream;
import java.net.InetSocketAddress;
import java.net.Socket;
import java.net.SocketTimeoutException;
import java.net.UnknownHostException;
import java.nio.charset.StandardCharsets;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** What a daemon says of itself to everybody who connects, before anybody has to say who they are. */
record DaemonGreeting(String version, long maxPayload, boolean wantsTls, boolean wantsCertificate,
        boolean wantsCredentials) {
    private static final int PATIENCE = 2000;
    private static final int LONGEST = 64 * 1024;

    /** Connects and listens; Failure with what went wrong. */
    static DaemonGreeting hear(DaemonAddress place) {
        boolean connected = false;
        try (Socket socket = new Socket()) {
            socket.connect(new InetSocketAddress(place.host(), place.port()), PATIENCE);
            connected = true;
            socket.setSoTimeout(PATIENCE);
            return parse(place, line(socket.getInputStream()));
        } catch (UnknownHostException e) {
            throw new Failure("there is no host \"" + place.host() + "\"");
        } catch (SocketTimeoutException e) {
            if (connected) throw new NoDaemon(place, "it does not greet who connects");
            throw new Failure("nobody answered at " + place.hostAndPort() + " within " + PATIENCE / 1000 + " s");
        } catch (IOException e) {
            throw new Failure(place.hostAndPort() + ": " + e.getMessage());
        }
    }

    /** Something else than a nats-server has the port. */
    static final class NoDaemon extends Failure {
        private static final long serialVersionUID = 1L;

        NoDaemon(DaemonAddress place, String why) {
            super("what listens at " + place.hostAndPort() + " is not a nats-server: " + why);
        }
    }

    private static String line(InputStream in) throws IOException {
        StringBuilder line = new StringBuilder();
        byte[] one = new byte[1];
        while (line.length() < LONGEST && in.read(one) == 1 && one[0] != '\n') {
            line.append(new String(one, StandardCharsets.ISO_8859_1));
        }
        return line.toString();
    }

    static DaemonGreeting parse(DaemonAddress place, String line) {
        if (!line.startsWith("INFO {")) {
            throw new NoDaemon(place, line.isBlank() ? "it ends the connection without a word" : "it says " + Texts.quoted(line.strip()));
        }
        String version = find(line, "\"version\":\"([^\"]*)\"");
        String payload = find(line, "\"max_payload\":([0-9]{1,18})");
        return new DaemonGreeting(version == null ? "unknown" : Texts.shown(version), payload == null ? 0 : Long.parseLong(payload),
                find(line, "\"(tls_required)\":true") != null, find(line, "\"(tls_verify)\":true") != null,
                find(line, "\"(auth_required)\":true") != null);
    }

    private static String find(String line, String pattern) {
        Matcher matcher = Pattern.compile(pattern).matcher(line);
        return matcher.find() ? matcher.group(1) : null;
    }
}
