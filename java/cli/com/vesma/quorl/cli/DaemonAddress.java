package com.vesma.quorl.cli;

import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;

/**
 * One server of a daemon's address, read as the library reads it: {@code nats://host:4222,tls://other:4223}, or short
 * {@code host:port}. Both are tested with the same table, tests/vectors/daemon-addresses.txt.
 */
record DaemonAddress(boolean tls, String host, int port) {
    private static final int DEFAULT_PORT = 4222;
    private static final int LONGEST = 1023;
    private static final int LONGEST_HOST = 253;
    private static final int LONGEST_SHOWN = 80;
    private static final int MOST = 32;
    private static final String NO_PORT = "its port is not a number from 1 to 65535";

    /** The servers of a cluster in their order; Failure when the library would refuse the address, with its words. */
    static List<DaemonAddress> parse(String text) {
        int length = text.getBytes(StandardCharsets.UTF_8).length;
        if (length > LONGEST) throw new Failure("a daemon address has at most " + LONGEST + " bytes, not " + length);
        if (text.indexOf('@') >= 0) throw refusal(Texts.withoutCredentials(text), "credentials do not belong in it");
        if (text.indexOf('?') >= 0 || text.indexOf('#') >= 0) {
            throw refusal(Texts.withoutCredentials(text), "nothing follows host and port in one");
        }
        List<DaemonAddress> servers = new ArrayList<>();
        boolean tls = false;
        for (String one : text.split(",", -1)) {
            if (servers.size() == MOST) throw refusal(one, "it follows 32 others, and an address names no more");
            DaemonAddress server = server(one, tls);
            servers.add(server);
            tls = server.tls;
        }
        return servers;
    }

    /** Host and port; an IPv6 address stands in brackets. */
    String hostAndPort() {
        return (host.indexOf(':') < 0 ? host : "[" + host + "]") + ":" + port;
    }

    String url() {
        return (tls ? "tls://" : "nats://") + hostAndPort();
    }

    /** tls: the scheme of the server before it. */
    private static DaemonAddress server(String text, boolean tls) {
        String rest = text;
        boolean secured = tls;
        int at = text.indexOf("://");
        if (at >= 0) {
            String scheme = text.substring(0, at);
            if (!scheme.equals("nats") && !scheme.equals("tls")) throw refusal(text, "its scheme is neither nats nor tls");
            secured = scheme.equals("tls");
            rest = text.substring(at + 3);
        }
        if (rest.startsWith("[")) return bracketed(text, rest, secured);
        int colon = rest.indexOf(':');
        String host = colon < 0 ? rest : rest.substring(0, colon);
        if (colon == rest.length() - 1 && colon >= 0) throw refusal(text, NO_PORT);
        if (host.isEmpty()) throw refusal(text, "it has no host");
        if (host.length() > LONGEST_HOST || !host.matches("[A-Za-z0-9._-]+") || host.startsWith("-") || host.startsWith(".")
                || host.contains("..")) {
            throw refusal(text, "its host name is not valid");
        }
        return new DaemonAddress(secured, host, colon < 0 ? DEFAULT_PORT : port(text, rest.substring(colon + 1)));
    }

    private static DaemonAddress bracketed(String text, String rest, boolean tls) {
        int end = rest.indexOf(']');
        if (end < 0) throw refusal(text, "its bracket is not closed");
        String host = rest.substring(1, end);
        String after = rest.substring(end + 1);
        if (!host.contains(":") || !host.matches("[0-9A-Fa-f:.]+")) throw refusal(text, "its brackets do not hold an IPv6 address");
        if (after.isEmpty()) return new DaemonAddress(tls, host, DEFAULT_PORT);
        if (!after.startsWith(":")) throw refusal(text, "its host is followed by something other than a port");
        return new DaemonAddress(tls, host, port(text, after.substring(1)));
    }

    private static int port(String text, String digits) {
        // Leading zeros do not count.
        if (!digits.matches("0*[1-9][0-9]{0,4}")) throw refusal(text, NO_PORT);
        int port = Integer.parseInt(digits.replaceFirst("^0+", ""));
        if (port > 65535) throw refusal(text, NO_PORT);
        return port;
    }

    private static Failure refusal(String text, String why) {
        String shown = text.length() <= LONGEST_SHOWN ? text : text.substring(0, LONGEST_SHOWN);
        return new Failure("\"" + shown + "\" is not a valid daemon address: " + why);
    }
}
