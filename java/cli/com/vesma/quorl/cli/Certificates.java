package com.vesma.quorl.cli;

import com.vesma.quorl.cli.DoctorCommand.Finding;
import com.vesma.quorl.cli.DoctorCommand.State;
import java.io.ByteArrayInputStream;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFilePermission;
import java.security.GeneralSecurityException;
import java.security.KeyStore;
import java.security.cert.Certificate;
import java.security.cert.CertificateFactory;
import java.security.cert.X509Certificate;
import java.time.Duration;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;
import java.util.Set;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** Looks at the files of certificates that the library has taken: when they expire, and who may read the secret ones. */
final class Certificates {
    /** Days before the end that are worth a word. */
    private static final long SOON = 30;

    private static final Pattern PEM = Pattern.compile("-----BEGIN (?:X509 |TRUSTED )?CERTIFICATE-----[^-]*-----END [A-Z0-9 ]*-----");

    private Certificates() {}

    static List<Finding> look(TransportOptions options) {
        List<Finding> findings = new ArrayList<>();
        Instant now = Instant.now();
        if (options.trust != null) expiry(findings, "--trust " + options.trust, pem(options.trust), now);
        if (options.identity != null) {
            boolean binary = Credentials.isBinary(options.identity);
            List<X509Certificate> own = binary ? container(options) : pem(options.identity);
            expiry(findings, "--identity " + options.identity, own, now);
        }
        findings.addAll(exposed(options));
        return findings;
    }

    /** One finding for each certificate. */
    static void expiry(List<Finding> findings, String file, List<X509Certificate> certificates, Instant now) {
        for (X509Certificate certificate : certificates) {
            String what = file + ": " + Texts.quoted(certificate.getSubjectX500Principal().getName());
            Instant begin = certificate.getNotBefore().toInstant();
            Instant end = certificate.getNotAfter().toInstant();
            long days = Duration.between(now, end).toDays();
            if (now.isAfter(end)) {
                findings.add(new Finding(State.WRONG, "certificate", what + " expired at " + end,
                        "ask its issuer for a new one"));
            } else if (now.isBefore(begin)) {
                findings.add(new Finding(State.WRONG, "certificate", what + " is valid from " + begin + " only",
                        "is this machine's clock right? 'date -u' shows it"));
            } else if (days < SOON) {
                findings.add(new Finding(State.NOTE, "certificate", what + " expires at " + end + ", in " + days + " days",
                        "ask its issuer for a new one in time"));
            } else {
                findings.add(new Finding(State.OK, "certificate", what + " expires at " + end, null));
            }
        }
    }

    /** Finds files of secrets, among those of the options, that every user of this machine may read. */
    static List<Finding> exposed(TransportOptions options) {
        List<Finding> findings = new ArrayList<>();
        if (options.identity != null) secret(findings, "--identity", options.identity);
        if (options.passwordFile != null) secret(findings, "--password-file", options.passwordFile);
        return findings;
    }

    private static void secret(List<Finding> findings, String option, String file) {
        try {
            Set<PosixFilePermission> allowed = Files.getPosixFilePermissions(Path.of(file));
            if (allowed.contains(PosixFilePermission.OTHERS_READ)) {
                findings.add(new Finding(State.NOTE, "credentials", option + " " + file + ": every user of this machine may read it",
                        "'chmod 600 " + file + "' keeps it secret"));
            }
        } catch (IOException | UnsupportedOperationException e) {
            // A file system without such rights.
        }
    }

    private static List<X509Certificate> pem(String file) {
        List<X509Certificate> certificates = new ArrayList<>();
        byte[] bytes = Credentials.bytes(file);
        try {
            CertificateFactory factory = CertificateFactory.getInstance("X.509");
            Matcher matcher = PEM.matcher(new String(bytes, StandardCharsets.ISO_8859_1));
            while (matcher.find()) {
                byte[] one = matcher.group().getBytes(StandardCharsets.ISO_8859_1);
                certificates.add((X509Certificate) factory.generateCertificate(new ByteArrayInputStream(one)));
            }
        } catch (GeneralSecurityException e) {
            // One that the library reads and Java does not; the connection shows what it is worth.
        } finally {
            Arrays.fill(bytes, (byte) 0);
        }
        return certificates;
    }

    private static List<X509Certificate> container(TransportOptions options) {
        List<X509Certificate> certificates = new ArrayList<>();
        char[] password = options.passwordFile == null || options.user != null ? new char[0]
                : Credentials.firstLine(options.passwordFile);
        byte[] bytes = Credentials.bytes(options.identity);
        try {
            KeyStore store = KeyStore.getInstance("PKCS12");
            store.load(new ByteArrayInputStream(bytes), password);
            for (String alias : Collections.list(store.aliases())) {
                Certificate[] chain = store.getCertificateChain(alias);
                Certificate alone = store.getCertificate(alias);
                for (Certificate one : chain != null ? chain : new Certificate[] {alone}) {
                    if (one instanceof X509Certificate certificate) certificates.add(certificate);
                }
            }
        } catch (GeneralSecurityException | IOException e) {
            // As for PEM.
        } finally {
            Arrays.fill(bytes, (byte) 0);
            Arrays.fill(password, '\0');
        }
        return certificates;
    }
}
