package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertInstanceOf;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.time.Duration;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Test;

/** What a request's exception says when a daemon does not let the request through. */
class RefusedRequestTest {
    private static final Duration SHORT = Duration.ofMillis(20);

    private static String detail(QuorlTransport through, String subject) throws InterruptedException {
        try (QuorlMsg question = new QuorlMsg(subject)) {
            ExecutionException e = assertThrows(ExecutionException.class,
                    () -> through.requestAsync(question, SHORT).get(OpenLibrary.LIMIT.toSeconds(), TimeUnit.SECONDS));
            return assertInstanceOf(QuorlTimeoutException.class, e.getCause()).getDetail();
        }
    }

    @Test
    void theDaemonsWordsAreInIt() throws InterruptedException {
        try (NatsServer server = new NatsServer("authorization { users: [ { user: u, password: p, permissions: { publish: { deny: "
                + "[\"quorl.*.*.secret.>\"] } } } ] }\nno_auth_user: u");
                Quorl quorl = Quorl.open();
                QuorlQrdTransport through = new QuorlQrdTransport(server.url());
                QuorlQrdTransport lab = new QuorlQrdTransport("lab", "default", server.url());
                QuorlQrdTransport inside = new QuorlQrdTransport("")) {
            assertTrue(detail(through, "open").startsWith("no reply to \"open\" in 0.02 s"));
            for (QuorlQrdTransport each : new QuorlQrdTransport[] {through, lab}) {
                String[] said = new String[1];
                // The daemon's word comes when it comes.
                OpenLibrary.await(() -> {
                    try {
                        said[0] = detail(each, "secret.of 100%");
                    } catch (InterruptedException e) {
                        throw new AssertionError(e);
                    }
                    return said[0].contains("Permissions Violation");
                });
                assertTrue(said[0].contains("; " + server.url() + " has refused it: "), said[0]);
                // It was about another subject, and another bus.
                assertFalse(detail(each, "of 100%").contains("Permissions Violation"));
                assertFalse(detail(inside, "secret.of 100%").contains("Permissions Violation"));
            }
        }
    }
}
