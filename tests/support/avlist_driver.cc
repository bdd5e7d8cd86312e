// SPDX-License-Identifier: Apache-2.0
//
// The script of bytes: which operation each byte means, and the comparison after
// each step.

#include "support/avlist_driver.hpp"

#include <cstring>

#include "aaa/avpair.h"
#include "aaa/dictionary.h"
#include "aaa/result_codes.h"
#include "support/avlist_model.hpp"
#include "support/avlist_verifier.hpp"

namespace aaatest {

namespace {

// Reads the script; zeros once it has ended.
class Script {
  public:
    explicit Script(std::span<const uint8_t> bytes) : rest_(bytes) {}
    [[nodiscard]] bool at_end() const { return rest_.empty(); }
    uint8_t byte() {
        if (rest_.empty()) {
            return 0;
        }
        const uint8_t next = rest_.front();
        rest_ = rest_.subspan(1);
        return next;
    }
    // Few types, so that occurrences collide; some that no dictionary has.
    uint32_t type() {
        constexpr uint32_t kTypes[] = {0, 1, 2, 39, 257, 257, 2069, 2071};
        return kTypes[byte() % 8];
    }
    uint32_t flags() { return uint32_t{byte()} << (byte() % 25); }
    // Mostly small values, at times some that need a buffer of their own.
    std::string value() {
        const uint8_t shape = byte();
        const std::size_t len = shape < 0xe0 ? shape % 48 : std::size_t{shape} * 3 + byte() % 4;
        const uint8_t seed = byte();
        std::string value(len, '\0');
        for (std::size_t i = 0; i < len; ++i) {
            value[i] = static_cast<char>(seed + i * (seed % 7));
        }
        return value;
    }

  private:
    std::span<const uint8_t> rest_;
};

class Driver {
  public:
    Driver(std::span<const uint8_t> bytes, Compare compare)
        : script_(bytes), list_(make_list("driven")), compare_(compare) {}

    std::string run() {
        for (unsigned step = 0; !script_.at_end() && fault_.empty(); ++step) {
            operation_ = "";
            perform(script_.byte());
            if (compare_ == Compare::after_every_step || script_.at_end()) {
                check_list();
            }
            if (!fault_.empty()) {
                return "step " + std::to_string(step) + " (" + operation_ + "): " + fault_;
            }
        }
        return fault_;
    }

  private:
    void perform(uint8_t operation) {
        switch (operation % 16) {
            case 0:
            case 1:
            case 2:
            case 3:
                return add();
            case 4:
                return add_with_tag();
            case 5:
                return delete_by_type_instance();
            case 6:
                return delete_by_type_value();
            case 7:
                return delete_by_iterator();
            case 8:
            case 9:
                return update();
            case 10:
                return update_by_iterator();
            case 11:
                return update_with_own_value();
            case 12:
                return find_type();
            case 13:
                return find_index();
            case 14:
                return add_own_value();
            default:
                return script_.byte() == 0 ? clear() : delete_by_iterator();
        }
    }

    void expect(bool condition, const char *what) {
        if (!condition && fault_.empty()) {
            fault_ = what;
        }
    }

    void check_list() {
        const Verdict verdict = verify_list(list_.get());
        expect(verdict.sound(), verdict.fault);
        if (fault_.empty()) {
            fault_ = model_.difference_from(list_.get());
        }
        avpair_mem_stats_t stats{};
        expect(aaa_avpair_get_mem_usage(list_.get(), &stats) == AAA_OK, "get_mem_usage failed");
        const avpair_mem_stats_t wanted = model_.mem_usage();
        expect(std::memcmp(&stats, &wanted, sizeof stats) == 0, "get_mem_usage counts differently");
        check_walk();
    }

    // The exported iterator visits the model's pairs.
    void check_walk() {
        aaa_avpair_iterator_t it{};
        avpair_t *pair = nullptr;
        cerrno code = aaa_avpair_iterator_init(&it, list_.get(), &pair);
        for (const ModelBuffer &buffer : model_.buffers()) {
            for (const ModelPair &wanted : buffer.pairs) {
                if (wanted.deleted) {
                    continue;
                }
                expect(code == AAA_OK && same(*pair, wanted), "the iterator visits something else");
                if (!fault_.empty()) {
                    return;
                }
                code = aaa_avpair_iterator_get_next(&it, &pair);
            }
        }
        expect(code == AAA_STATUS_END_OF_LIST, "the iterator does not end");
    }

    static bool same(const avpair_t &pair, const ModelPair &wanted) {
        return pair.av_type == wanted.type && pair.av_tag == wanted.tag && pair.av_flags == wanted.flags &&
               pair.av_len == wanted.value.size() &&
               std::memcmp(&pair + 1, wanted.value.data(), pair.av_len) == 0;
    }

    ModelPair new_pair() {
        ModelPair pair;
        pair.type = script_.type();
        pair.tag = script_.byte();
        pair.flags = script_.flags();
        pair.value = script_.value();
        return pair;
    }

    void add() {
        operation_ = "add";
        const ModelPair pair = new_pair();
        const auto len = static_cast<uint32_t>(pair.value.size());
        expect(aaa_avpair_add(pair.type, pair.flags, len != 0 ? pair.value.data() : nullptr, pair.tag, len,
                              list_.get()) == AAA_OK,
               "failed");
        model_.add(pair);
    }

    void add_with_tag() {
        operation_ = "add_with_tag";
        const ModelPair pair = new_pair();
        expect(aaa_avpair_add_with_tag(pair.type, pair.flags, pair.value.data(),
                                       static_cast<uint32_t>(pair.value.size()), pair.tag,
                                       list_.get()) == AAA_OK,
               "failed");
        model_.add(pair);
    }

    void delete_by_type_instance() {
        operation_ = "delete_by_type_instance";
        const uint32_t type = script_.type();
        const uint32_t instance = script_.byte() % 4;
        avpair_flags_t flags = 0;
        const cerrno code = aaa_avpair_delete_by_type_instance(type, instance, list_.get(), &flags);
        settle_deletion(model_.find(type, instance), code, flags);
    }

    void delete_by_type_value() {
        operation_ = "delete_by_type_value";
        const auto chosen = model_.at(script_.byte());
        ModelPair wanted = chosen ? model_.pair(*chosen) : new_pair();
        if (script_.byte() % 4 == 0) {
            wanted.value += 'x';
        }
        avpair_flags_t flags = 0;
        const cerrno code =
            aaa_avpair_delete_by_type_value(wanted.type, wanted.value.data(),
                                            static_cast<uint32_t>(wanted.value.size()), list_.get(), &flags);
        settle_deletion(model_.find(wanted.type, wanted.value), code, flags);
    }

    void settle_deletion(std::optional<ListModel::Place> place, cerrno code, avpair_flags_t flags) {
        expect(code == (place ? AAA_OK : AAA_ERR_AVPAIR_NOT_FOUND), "wrong code");
        if (place) {
            expect(flags == model_.pair(*place).flags, "wrong flags handed back");
            model_.erase(*place);
        }
    }

    // Position of a live pair that the script names; its place in the model.
    std::optional<ListModel::Place> choose(aaa_avpair_iterator_t &it) {
        const std::size_t count = model_.live();
        if (count == 0) {
            return std::nullopt;
        }
        const std::size_t index = script_.byte() % count;
        avpair_t *pair = nullptr;
        cerrno code = aaa_avpair_iterator_init(&it, list_.get(), &pair);
        for (std::size_t i = 0; code == AAA_OK && i < index; ++i) {
            code = aaa_avpair_iterator_get_next(&it, &pair);
        }
        expect(code == AAA_OK, "the iterator ends early");
        return code == AAA_OK ? model_.at(index) : std::nullopt;
    }

    void delete_by_iterator() {
        operation_ = "delete_by_iterator";
        aaa_avpair_iterator_t it{};
        if (const auto place = choose(it)) {
            expect(aaa_avpair_delete_by_iterator(&it, list_.get()) == AAA_OK, "failed");
            model_.erase(*place);
        }
    }

    void update() {
        operation_ = "update";
        ModelPair pair = new_pair();
        const uint32_t instance = script_.byte() % 3;
        const auto place = model_.find(pair.type, instance);
        if (place && script_.byte() % 2 == 0) {
            pair.value.resize(model_.pair(*place).value.size(), 'u');
        }
        expect(aaa_avpair_update(pair.type, pair.flags, pair.value.data(), pair.tag,
                                 static_cast<uint32_t>(pair.value.size()), instance, list_.get()) == AAA_OK,
               "failed");
        if (place) {
            model_.update(*place, pair.flags, pair.value, pair.tag);
        } else {
            model_.add(pair);
        }
    }

    void update_by_iterator() {
        operation_ = "update_by_iterator";
        aaa_avpair_iterator_t it{};
        if (const auto place = choose(it)) {
            const ModelPair pair = new_pair();
            expect(aaa_avpair_update_by_iterator(&it, pair.flags, pair.value.data(), pair.tag,
                                                 static_cast<uint32_t>(pair.value.size()),
                                                 list_.get()) == AAA_OK,
                   "failed");
            model_.update(*place, pair.flags, pair.value, pair.tag);
        }
    }

    // The new value is inside the list that is changed.
    void update_with_own_value() {
        operation_ = "update with a value of the same list";
        aaa_avpair_iterator_t source{};
        const auto from = choose(source);
        aaa_avpair_iterator_t target{};
        const auto to = choose(target);
        if (!from || !to) {
            return;
        }
        const std::string value = model_.pair(*from).value;
        const auto offset = value.empty() ? 0 : script_.byte() % value.size();
        expect(aaa_avpair_update_by_iterator(
                   &target, 1, reinterpret_cast<const char *>(source.curr_avp + 1) + offset, 5,
                   static_cast<uint32_t>(value.size() - offset), list_.get()) == AAA_OK,
               "failed");
        model_.update(*to, 1, value.substr(offset), 5);
    }

    void find_type() {
        operation_ = "find_type";
        const uint32_t type = script_.type();
        const uint32_t instance = script_.byte() % 4;
        avpair_flags_t flags = 0;
        void *value = nullptr;
        uint32_t len = 0;
        const cerrno code = aaa_avpair_find_type(type, &flags, &value, &len, instance, list_.get());
        const auto place = model_.find(type, instance);
        expect(code == (place ? AAA_OK : AAA_ERR_AVPAIR_NOT_FOUND), "wrong code");
        if (place && code == AAA_OK) {
            const ModelPair &wanted = model_.pair(*place);
            expect(flags == wanted.flags, "wrong flags");
            expect(std::string_view(static_cast<const char *>(value), len) == wanted.value, "wrong value");
        }
    }

    void find_index() {
        operation_ = "find_index";
        const uint32_t index = script_.byte() % 16;
        ModelPair found;
        void *value = nullptr;
        uint32_t len = 0;
        const cerrno code =
            aaa_avpair_find_index(index, &found.type, &found.flags, &value, &found.tag, &len, list_.get());
        const auto place = model_.at(index);
        expect(code == (place ? AAA_OK : AAA_ERR_AVPAIR_NOT_FOUND), "wrong code");
        if (place && code == AAA_OK) {
            found.value.assign(static_cast<const char *>(value), len);
            expect(found == model_.pair(*place), "wrong pair");
        }
    }

    void add_own_value() {
        operation_ = "add a value of the same list";
        aaa_avpair_iterator_t source{};
        if (const auto place = choose(source)) {
            ModelPair copy = model_.pair(*place);
            copy.tag = 7;
            expect(aaa_avpair_add(copy.type, copy.flags, source.curr_avp + 1, copy.tag,
                                  source.curr_avp->av_len, list_.get()) == AAA_OK,
                   "failed");
            model_.add(copy);
        }
    }

    void clear() {
        operation_ = "clear";
        aaa_avpair_clear(list_.get());
        expect(std::strcmp(list_->av_name, "driven") == 0, "the name is lost");
        model_.clear();
    }

    Script script_;
    ListPtr list_;
    const Compare compare_;
    ListModel model_;
    std::string fault_;
    const char *operation_ = "";
};

}  // namespace

std::string drive_list(std::span<const uint8_t> script, Compare compare) {
    return Driver(script, compare).run();
}

}  // namespace aaatest
