// SPDX-License-Identifier: MIT
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include "jsonschema.h"
#include "literals.h"
#include "rows.h"

namespace {

QString pathText(const JsonPath& path)
{
    QString text;
    for (const JsonStep& step : path) {
        const auto* name = std::get_if<QString>(&step);
        text += QLatin1Char('/') + (name ? *name : QString::number(std::get<int>(step)));
    }
    return text;
}

QJsonObject object(const QByteArray& text)
{
    const QJsonDocument document = QJsonDocument::fromJson(text);
    if (!document.isObject()) {
        qFatal("bad JSON in the test: %s", text.constData());
    }
    return document.object();
}

} // namespace

/// The part of JSON Schema that the mapping's schema needs.
class tst_JsonSchema : public QObject
{
    Q_OBJECT

private slots:
    void violations_data()
    {
        // value: of the member "v"
        const Rows<QByteArray, QByteArray, QStringList> row("schema", "value", "found");
        const auto one = [](const char* text) { return QStringList(QString::fromUtf8(text)); };
        row("integer: fits", R"({"type": "integer"})", "7", {});
        row("integer written as 7.0: fits", R"({"type": "integer"})", "7.0", {});
        row("fraction: no integer", R"({"type": "integer"})", "7.5",
            one("/v has to be a whole number, not a fraction"));
        row("text: no integer", R"({"type": "integer"})", "\"7\"",
            one("/v has to be a whole number, not a text"));
        row("integer: a number", R"({"type": "number"})", "7", {});
        row("true: no number", R"({"type": "number"})", "true",
            one("/v has to be a number, not true or false"));
        row("null: no string", R"({"type": "string"})", "null", one("/v has to be a text, not null"));
        row("array: no object", R"({"type": "object"})", "[]", one("/v has to be an object, not an array"));
        row("object: no array", R"({"type": "array"})", "{}", one("/v has to be an array, not an object"));
        row("no type: anything fits", "{}", "[null]", {});
        row("lowest: fits", R"({"minimum": -2, "maximum": 5})", "-2", {});
        row("highest: fits", R"({"minimum": -2, "maximum": 5})", "5", {});
        row("below: beyond", R"({"minimum": -2, "maximum": 5})", "-3", one("/v is -3, beyond -2 to 5"));
        row("above: beyond", R"({"minimum": 0, "maximum": 65535})", "65536",
            one("/v is 65536, beyond 0 to 65535"));
        row("range and text: not concerned", R"({"minimum": 0, "maximum": 1})", "\"9\"", {});
        row("listed: fits", R"({"enum": ["r", "w"]})", "\"w\"", {});
        row("not listed: named", R"({"enum": ["r", "w"]})", "\"rw\"", one(R"(/v has to be one of "r", "w")"));
        row("items: each checked", R"({"items": {"type": "integer"}})", "[1, \"2\", 3, 4.5]",
            {"/v/1 has to be a whole number, not a text"_s,
             "/v/3 has to be a whole number, not a fraction"_s});
        row("required: there", R"({"required": ["a"]})", R"({"a": null})", {});
        row("required: missing", R"({"required": ["a", "b"]})", R"({"b": 1})", one("/v lacks \"a\""));
        row("property: checked", R"({"properties": {"a": {"type": "string"}}})", R"({"a": 1, "b": 1})",
            one("/v/a has to be a text, not a whole number"));
        row("other members: checked",
            R"({"properties": {"a": {}}, "additionalProperties": {"type": "string"}})",
            R"({"a": 1, "b": 1, "c": "x"})", one("/v/b has to be a text, not a whole number"));
        row("names: checked", R"({"propertyNames": {"pattern": "^[a-c]$"}})", R"({"a": 1, "d": 1})",
            one("/v/d is no name known here"));
        row("reference: followed", R"({"items": {"$ref": "#/definitions/small"}})", "[1, 11]",
            one("/v/1 is 11, beyond 0 to 10"));
    }

    void violations()
    {
        QFETCH(QByteArray, schema);
        QFETCH(QByteArray, value);
        const QJsonObject whole{{"properties"_s, QJsonObject{{"v"_s, object(schema)}}},
                                {"definitions"_s, object(R"({"small": {"minimum": 0, "maximum": 10}})")}};
        QStringList found;
        for (const JsonSchema::Violation& violation :
             JsonSchema(whole).check(object("{\"v\": " + value + "}"))) {
            found << pathText(violation.path) + QLatin1Char(' ') + violation.text;
        }
        QTEST(found, "found");
    }
};

QTEST_GUILESS_MAIN(tst_JsonSchema)

#include "tst_jsonschema.moc"
