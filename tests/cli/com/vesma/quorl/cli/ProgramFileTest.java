package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Files;
import java.nio.file.Path;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Which programs can be run, found out before it is their turn. */
class ProgramFileTest {
    @TempDir
    Path folder;

    @Test
    void whatIsNotThereOrNotExecutableIsToldApart() throws Exception {
        Path letter = Files.writeString(folder.resolve("letter"), "dear");
        Path script = Files.writeString(folder.resolve("script"), "#!/bin/sh\n");
        assertTrue(script.toFile().setExecutable(true));
        Path sub = Files.createDirectory(folder.resolve("sub"));
        String none = sub.toString();
        assertNull(ProgramFile.whyNotRunnable(script.toString(), none));
        assertNull(ProgramFile.whyNotRunnable("script", none + ":" + folder));
        assertNull(ProgramFile.whyNotRunnable("sh", null));
        assertEquals("there is no such file", ProgramFile.whyNotRunnable(folder.resolve("gone").toString(), none));
        assertEquals("it is not executable for this user", ProgramFile.whyNotRunnable(letter.toString(), none));
        assertEquals("it is a folder", ProgramFile.whyNotRunnable(sub.toString(), none));
        assertEquals("no folder of PATH has it", ProgramFile.whyNotRunnable("script", none));
        assertEquals("no folder of PATH has it", ProgramFile.whyNotRunnable("", folder.toString()));
        assertEquals("no folder of PATH has it", ProgramFile.whyNotRunnable("sub", folder.toString()));
        assertEquals(letter + ": it is not executable for this user", ProgramFile.whyNotRunnable("letter", folder.toString()));
    }

    /** Before anything is joined. */
    @Test
    void aCommandWhoseProgramCannotRunFailsAtTheStart() {
        String joined = "quorl: cannot run \"/not/there\": there is no such file\n";
        assertEquals(new Cli(1, "", joined), Cli.run("ft", "join", "g", "--daemon", "127.0.0.1:1", "--exec", "/not/there", "-x"));
        assertEquals(new Cli(1, "", joined), Cli.run("dq", "work", "crew", "work.*", "--daemon", "127.0.0.1:1", "/not/there"));
        Cli run = Cli.run("ft", "join", "g", "--daemon", "127.0.0.1:1", "--exec", "quorl-not-there");
        assertEquals(new Cli(1, "", "quorl: cannot run \"quorl-not-there\": no folder of PATH has it\n"), run);
    }
}
