package com.vesma.quorl;

import com.vesma.quorl.internal.image.ApiAccess;
import com.vesma.quorl.internal.image.MessageGuard;
import com.vesma.quorl.internal.image.MessageImage;

/** What the internal packages reach of this one. */
final class ForInternals extends ApiAccess {
    @Override
    protected QuorlException make(int status, String detail, Throwable cause) {
        return new QuorlException(status, detail, cause);
    }

    @Override
    protected QuorlException makeClosed(int status, String what) {
        return new QuorlClosedException(status, what);
    }

    @Override
    protected QuorlException prefix(QuorlException e, String what) {
        return e.about(what);
    }

    @Override
    protected QuorlMsgView makeView(MessageGuard owner, byte[] bytes, int start, int end) {
        return new QuorlMsgView(owner, bytes, start, end);
    }

    @Override
    protected MessageImage imageOf(QuorlMsgView view) {
        return view.image();
    }
}
