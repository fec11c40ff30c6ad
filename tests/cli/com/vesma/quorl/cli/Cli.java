package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.io.ByteArrayInputStream;
import java.io.InputStream;
import java.io.PrintWriter;
import java.io.StringWriter;
import java.nio.charset.StandardCharsets;

/** Runs one command line in this process and keeps what it printed. */
record Cli(int code, String out, String err) {
    static Cli run(String... arguments) {
        return withInput("", arguments);
    }

    static Cli withInput(String input, String... arguments) {
        return withInput(new ByteArrayInputStream(input.getBytes(StandardCharsets.UTF_8)), arguments);
    }

    static Cli withInput(InputStream input, String... arguments) {
        StringWriter out = new StringWriter();
        StringWriter err = new StringWriter();
        int code = Main.run(input, new PrintWriter(out), new PrintWriter(err), arguments);
        return new Cli(code, out.toString(), err.toString());
    }

    /** A script of lines that must work and print this, with nothing on standard error. */
    static void expect(String out, String... lines) {
        assertEquals(new Cli(0, out, ""), withInput(String.join("\n", lines), "run"));
    }

    /** A command line that is wrong, with the complaint and the advice. */
    static void expectUsage(String complaint, String advised, String... arguments) {
        assertEquals(new Cli(2, "", "quorl: " + complaint + "\nquorl: try '" + advised + " --help'\n"), run(arguments));
    }
}
