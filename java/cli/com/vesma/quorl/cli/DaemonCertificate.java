package com.vesma.quorl.cli;

import java.io.IOException;
import java.net.InetSocketAddress;
import java.net.Socket;
import java.security.GeneralSecurityException;
import java.security.cert.X509Certificate;
import java.util.List;
import javax.net.ssl.SSLContext;
import javax.net.ssl.SSLEngine;
import javax.net.ssl.SSLSocket;
import javax.net.ssl.TrustManager;
import javax.net.ssl.X509ExtendedTrustManager;

/** The certificates that a server shows to everybody who begins TLS with it. They are looked at, not trusted. */
final class DaemonCertificate {
    private static final int PATIENCE = 2000;

    private DaemonCertificate() {}

    /** The server's own one, without those of its authorities; empty when the server shows none. */
    static List<X509Certificate> of(DaemonAddress place) {
        Recorder recorder = new Recorder();
        try (Socket plain = new Socket()) {
            plain.connect(new InetSocketAddress(place.host(), place.port()), PATIENCE);
            plain.setSoTimeout(PATIENCE);
            // The greeting comes in the clear.
            for (int c = 0; c != '\n' && c >= 0;) c = plain.getInputStream().read();
            SSLContext context = SSLContext.getInstance("TLS");
            context.init(null, new TrustManager[] {recorder}, null);
            try (SSLSocket secured = (SSLSocket) context.getSocketFactory().createSocket(plain, place.host(), place.port(), false)) {
                secured.startHandshake();
            }
        } catch (IOException | GeneralSecurityException e) {
            // The certificate has come by then, or the connection that follows says what is wrong.
        }
        return recorder.shown;
    }

    /** Keeps what it is shown and ends nothing: who is asked nothing, and told nothing, need not be trusted. */
    private static final class Recorder extends X509ExtendedTrustManager {
        private List<X509Certificate> shown = List.of();

        @Override
        public void checkServerTrusted(X509Certificate[] chain, String type) {
            if (chain.length > 0) shown = List.of(chain[0]);
        }

        @Override
        public void checkServerTrusted(X509Certificate[] chain, String type, Socket socket) {
            checkServerTrusted(chain, type);
        }

        @Override
        public void checkServerTrusted(X509Certificate[] chain, String type, SSLEngine engine) {
            checkServerTrusted(chain, type);
        }

        @Override
        public void checkClientTrusted(X509Certificate[] chain, String type) {}

        @Override
        public void checkClientTrusted(X509Certificate[] chain, String type, Socket socket) {}

        @Override
        public void checkClientTrusted(X509Certificate[] chain, String type, SSLEngine engine) {}

        @Override
        public X509Certificate[] getAcceptedIssuers() {
            return new X509Certificate[0];
        }
    }
}
