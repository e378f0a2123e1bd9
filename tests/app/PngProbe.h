#pragma once

#include <QByteArray>
#include <QFile>
#include <QSet>
#include <QString>
#include <QtEndian>
#include <cstdlib>

// Reads what the app tests need from a PNG without Qt Gui (the app test links only
// Qt Core): the size, and how many distinct colours it holds up to a limit. Handles the
// 8-bit RGB and RGBA, non-interlaced files Qt writes; anything else reads as invalid.
struct PngProbe
{
    bool valid = false;
    int width = 0;
    int height = 0;
    int colours = 0; // distinct pixel values, counted up to the limit given

    static PngProbe read(const QString &path, int colourLimit = 64)
    {
        PngProbe probe;
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            return probe;
        const QByteArray data = file.readAll();
        if (!data.startsWith("\x89PNG\r\n\x1a\n"))
            return probe;
        QByteArray compressed;
        int depth = 0, colourType = -1, interlace = -1;
        for (qsizetype at = 8; at + 12 <= data.size();) {
            const quint32 length = qFromBigEndian<quint32>(data.constData() + at);
            const QByteArray type = data.mid(at + 4, 4);
            if (at + 12 + qsizetype(length) > data.size())
                return probe;
            const char *body = data.constData() + at + 8;
            if (type == "IHDR" && length >= 13) {
                probe.width = int(qFromBigEndian<quint32>(body));
                probe.height = int(qFromBigEndian<quint32>(body + 4));
                depth = quint8(body[8]);
                colourType = quint8(body[9]);
                interlace = quint8(body[12]);
            } else if (type == "IDAT") {
                compressed.append(body, length);
            }
            at += 12 + length;
        }
        const int bpp = colourType == 2 ? 3 : colourType == 6 ? 4 : 0;
        if (depth != 8 || bpp == 0 || interlace != 0 || probe.width <= 0 || probe.height <= 0)
            return probe;
        const qsizetype stride = qsizetype(probe.width) * bpp;
        const qsizetype expected = (stride + 1) * probe.height;
        QByteArray prefixed(4, 0);
        qToBigEndian<quint32>(quint32(expected), prefixed.data());
        QByteArray raw = qUncompress(prefixed + compressed);
        if (raw.size() != expected)
            return probe;

        QByteArray previous(stride, 0), row(stride, 0);
        QSet<QByteArray> seen;
        for (int y = 0; y < probe.height; ++y) {
            const auto *in = reinterpret_cast<const quint8 *>(raw.constData() + y * (stride + 1));
            if (!unfilter(in[0], in + 1, reinterpret_cast<const quint8 *>(previous.constData()),
                          reinterpret_cast<quint8 *>(row.data()), stride, bpp))
                return probe;
            for (qsizetype x = 0; x < stride && seen.size() < colourLimit; x += bpp)
                seen.insert(row.mid(x, bpp));
            previous = row;
        }
        probe.colours = int(seen.size());
        probe.valid = true;
        return probe;
    }

private:
    static bool unfilter(int filter, const quint8 *in, const quint8 *up, quint8 *out,
                         qsizetype stride, int bpp)
    {
        for (qsizetype i = 0; i < stride; ++i) {
            const int a = i >= bpp ? out[i - bpp] : 0;
            const int b = up[i];
            const int c = i >= bpp ? up[i - bpp] : 0;
            int predictor = 0;
            switch (filter) {
            case 0:
                break;
            case 1:
                predictor = a;
                break;
            case 2:
                predictor = b;
                break;
            case 3:
                predictor = (a + b) / 2;
                break;
            case 4: {
                const int p = a + b - c;
                const int pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
                predictor = pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
                break;
            }
            default:
                return false;
            }
            out[i] = quint8(in[i] + predictor);
        }
        return true;
    }
};
