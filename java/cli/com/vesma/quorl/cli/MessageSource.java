package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsg;
import java.io.Closeable;
import java.io.IOException;

/** Messages to send, one after the other, from a table or from JSON. */
interface MessageSource extends Closeable {
    /** The next one, to be closed; null at the end. IllegalArgumentException says where the text is wrong, and how. */
    QuorlMsg next() throws IOException;
}
