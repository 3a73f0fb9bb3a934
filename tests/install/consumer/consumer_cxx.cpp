// A C++17 host built against the installed library: the whole interface in one include, a
// message made with the message classes, and a raise caught by the status-context protocol.
#include <qv/qvcommon.h>

#include <cstdio>
#include <string>
#include <string_view>

int main() {
    PWMessage message(QV_MSG_GLOSSARY_OPEN_FAILED, MESSAGE_SEVERITY_ERROR);
    message << std::string_view("x.gls");
    bool ok = message.Text() == "The glossary file 'x.gls' cannot be opened.";

    volatile int landed = 0;
    if (except_start_context("main", "consumer_cxx", __LINE__) != nullptr) {
        if (setjmp(Exc_Sp->jump_state) == 0)
            except_raise(GENERAL_ERROR, "consumer_cxx", __LINE__, 0, 0, nullptr);
        else
            landed = 1;
        Exc_Sp->in_handler = 1;
        except_end_context("consumer_cxx", __LINE__);
    }
    ok = ok && landed == 1 && Exc_Raised_ == GENERAL_ERROR;
    std::printf("%s\n", message.Text().c_str());
    return ok ? 0 : 1;
}
