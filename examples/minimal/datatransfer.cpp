// A data transfer is a stream of bytes from one place in a process to another, with an end. The buffered kind keeps
// what comes ahead of its reader.
#include <orvo_kit.h>

#include <iostream>

int main()
{
    const CMBufferedDataTransfer stream;
    stream.dataAvailable("one ");
    stream.dataAvailable("two");

    stream.onDataAvailable(
        [](const QByteArray& chunk) { std::cout << '[' << chunk.toStdString() << ']' << std::endl; });
    stream.dataAvailable("three");

    stream.onFinished([](const CMError& error) {
        std::cout << (error.isError() ? "ended with an error" : "ended well") << std::endl;
    });
    stream.finish(CMError());
}
