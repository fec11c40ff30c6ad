package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;

import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.ValueSource;

class SubjectsTest {
    @ParameterizedTest
    @ValueSource(strings = {"a", "plant.line3.temp", "a.b.c", "a b", "_QUORL.INFO.x", "größe.温度.😀"})
    void theseCanBeSentToAndListenedTo(String subject) {
        assertNull(Subjects.whyNotSendable(subject));
        assertNull(Subjects.whyNotListenable(subject));
    }

    @ParameterizedTest
    @ValueSource(strings = {"*", ">", "a.*.b", "*.*", "a.>", "a.*.>"})
    void theseCanOnlyBeListenedTo(String subject) {
        assertNull(Subjects.whyNotListenable(subject));
        assertEquals("\"" + (subject.contains("*") ? "*" : ">") + "\" is a wildcard; a message is sent to one subject",
                Subjects.whyNotSendable(subject));
    }

    @ParameterizedTest
    @CsvSource({"'', it is empty", ".a, element 1 is empty", "a..b, element 2 is empty", "a.b., element 3 is empty"})
    void theseAreMalformed(String subject, String why) {
        assertEquals(why, Subjects.whyNotSendable(subject));
        assertEquals(why, Subjects.whyNotListenable(subject));
    }

    @Test
    void aWildcardIsAWholeElement() {
        for (String subject : new String[] {"plant.a*b", "plant.>b", "plant.**"}) {
            String why = "element 2, \"" + subject.substring(6) + "\", has a wildcard inside; a wildcard is a whole element";
            assertEquals(why, Subjects.whyNotSendable(subject));
            assertEquals(why, Subjects.whyNotListenable(subject));
        }
    }

    @Test
    void theSystemsSubjectsAreItsOwn() {
        assertEquals("what starts with \"_\" belongs to the system", Subjects.whyNotSendable("_private.a"));
        assertEquals("what starts with \"_\" belongs to the system", Subjects.whyNotListenable("_private.a"));
        assertEquals("what starts with \"_\" belongs to the system", Subjects.whyNotListenable("_INBOX.1.2"));
        assertNull(Subjects.whyNotSendable("_INBOX.1.2"));
    }

    @Test
    void theTailWildcardMustBeLast() {
        assertEquals("\">\" stands for all that follows, so it must be the last element",
                Subjects.whyNotListenable("a.>.b"));
    }

    @Test
    void aSubjectIsAsLongAsItsBytes() {
        assertNull(Subjects.whyNotSendable("x".repeat(254)));
        assertEquals("it has 255 bytes; a subject has at most 254", Subjects.whyNotSendable("x".repeat(255)));
        assertEquals("it has 256 bytes; a subject has at most 254", Subjects.whyNotListenable("é".repeat(128)));
    }

    @ParameterizedTest
    @CsvSource({"eth0, eth0", "eth0.100, eth0-100", "br_lan, br_lan", "_hidden, -hidden", "'a b*>', a-b--", "'', -",
            "größe, größe"})
    void anyNameBecomesAnElement(String name, String element) {
        assertEquals(element, Subjects.element(name));
        assertNull(Subjects.whyNotSendable("machine." + Subjects.element(name)));
    }
}
