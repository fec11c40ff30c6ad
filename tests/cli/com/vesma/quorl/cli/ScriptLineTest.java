package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;

import java.util.List;
import org.junit.jupiter.api.Test;

class ScriptLineTest {
    @Test
    void cutsAtBlanks() {
        assertEquals(List.of("send", "a.b", "x:i32=1"), ScriptLine.words("  send a.b\tx:i32=1 \r"));
        assertEquals(List.of(), ScriptLine.words("   "));
    }

    @Test
    void quotesKeepBlanksAndMayStandInsideAWord() {
        assertEquals(List.of("note:string=two words", "b"), ScriptLine.words("note:string='two words' b"));
        assertEquals(List.of("note:string=say \"hi\" \\ C:\\n", ""),
                ScriptLine.words("\"note:string=say \\\"hi\\\" \\\\ C:\\n\" ''"));
        assertEquals(List.of("a b#c"), ScriptLine.words("a\\ b#c"));
    }

    @Test
    void aCommentRunsFromTheStartOfAWordToTheEnd() {
        assertEquals(List.of("listen", "a#b"), ScriptLine.words("listen a#b # until the end 'of line"));
        assertEquals(List.of(), ScriptLine.words("# nothing"));
    }

    @Test
    void saysWhatIsNotClosed() {
        assertEquals("a single quote is not closed", error("send 'a"));
        assertEquals("a double quote is not closed", error("send \"a\\\""));
        assertEquals("the line ends in a backslash", error("send a\\"));
    }

    private static String error(String line) {
        return assertThrows(IllegalArgumentException.class, () -> ScriptLine.words(line)).getMessage();
    }
}
