// tagfile FILE KEY=VALUE...: writes the tags of a sound file, with TagLib's names of properties (ARTIST, ALBUM, ...).

#include <QFile>
#include <QString>

#include <taglib/fileref.h>
#include <taglib/tpropertymap.h>

#include <iostream>

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::cerr << "usage: tagfile FILE KEY=VALUE..." << std::endl;
        return 2;
    }
    TagLib::FileRef file(argv[1]);
    if (file.isNull()) {
        std::cerr << "tagfile: no sound file: " << argv[1] << std::endl;
        return 1;
    }
    TagLib::PropertyMap properties = file.file()->properties();
    for (int i = 2; i < argc; ++i) {
        const QString text = QString::fromLocal8Bit(argv[i]);
        const int equals = text.indexOf(QLatin1Char('='));
        if (equals < 1) {
            std::cerr << "tagfile: not KEY=VALUE: " << argv[i] << std::endl;
            return 2;
        }
        properties.replace(TagLib::String(text.left(equals).toStdString(), TagLib::String::UTF8),
                           TagLib::String(text.mid(equals + 1).toStdString(), TagLib::String::UTF8));
    }
    file.file()->setProperties(properties);
    if (!file.save()) {
        std::cerr << "tagfile: cannot write " << argv[1] << std::endl;
        return 1;
    }
}
