#include "zel/serve/webtools.h"

#include <algorithm>

#include "zel/query/searchline.h"
#include "zel/results/fields.h"
#include "zel/results/resultform.h"

namespace zel {

namespace {

class ResultWebForm final : public WebForm {
public:
    explicit ResultWebForm(FormChoice choice)
        : wantsKey_(std::any_of(choice.fields.begin(), choice.fields.end(),
                                [](const Field& field) { return field.IsKey(); })),
          wantsEnrichments_(std::any_of(choice.fields.begin(), choice.fields.end(), OfEnrichments)),
          form_(MakeResultForm(std::move(choice))) {}

    bool WantsEnrichments() const override { return wantsEnrichments_; }
    std::string Row(std::string_view text, std::string_view key) override {
        const bool isFirst = isEmpty_;
        isEmpty_ = false;
        return form_->Row({text, wantsKey_ ? key : ""}, isFirst);
    }
    std::string End() override { return form_->End(isEmpty_); }

private:
    static bool OfEnrichments(const Field& field) {
        return field.column == nullptr && field.pointer.front() == "enrichments";
    }

    const bool wantsKey_, wantsEnrichments_;
    const std::unique_ptr<ResultForm> form_;
    bool isEmpty_ = true;
};

std::unique_ptr<WebForm> MakeForm(const std::string& form, const std::string& fields,
                                  std::string* problem) {
    FormChoice choice;
    choice.name = form.empty() ? "ndjson" : form;
    if (choice.name != "ndjson" && choice.name != "csv" && choice.name != "ocsf") {
        *problem = "form is none of ndjson, csv and ocsf";
        return nullptr;
    }
    if (choice.name == "csv")
        choice.fields = AllFields({});
    if (!fields.empty() && choice.name != "ocsf") {
        auto chosen = ParseFields(fields, problem);
        if (!chosen)
            return nullptr;
        choice.fields = std::move(*chosen);
    }
    return std::make_unique<ResultWebForm>(std::move(choice));
}

}  // namespace

WebTools MakeWebTools(ReadParameters readParameters) {
    const AskByParameters ask = [readParameters](const auto& parameters, AskedQuestion* question,
                                                 std::string* why) {
        ParameterQuestion asked;
        if (!readParameters(parameters, &asked, why))
            return false;
        question->document = std::move(asked.document);
        question->fits = std::move(asked.fits);
        return true;
    };
    const ReadWords words = [readParameters](const auto& line, auto at, const auto& seen,
                                             std::string* json) {
        return AnswerSearchLine(line, at, readParameters, seen, json);
    };
    return {ask, MakeForm, words};
}

}  // namespace zel
