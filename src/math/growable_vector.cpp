#include "kosc/growable_vector.h"

#include <cstring>

#include "math/vector_bulk.h"
#include "platform/owned.h"

using namespace kosc;

vector* vector_init(uint32_t capacity)
{
    block_ptr<double> storage{capacity != 0 ? alloc_array<double>(capacity) : nullptr};
    if (!storage) {
        return nullptr;
    }
    auto* v = alloc_record<vector>();
    if (v != nullptr) {
        double* const block = storage.release();
        *v = {block, block + capacity, capacity, 0, block, block};
    }
    return v;
}

void vector_free(vector* v)
{
    if (v != nullptr) {
        std::free(v->storage);
        std::free(v);
    }
}

uint32_t vector_capacity(const vector* v) { return v != nullptr ? v->capacity : 0; }

uint32_t vector_size(const vector* v) { return v != nullptr ? v->size : 0; }

uint32_t vector_unused(const vector* v) { return v != nullptr ? v->capacity - v->size : 0; }

double* vector_view(const vector* v, int32_t index, uint32_t count)
{
    if (v == nullptr) {
        return nullptr;
    }
    const int64_t first = index < 0 ? int64_t{v->size} + index : int64_t{index};
    const bool inside = first >= 0 && first < v->size && count <= v->size - first;
    return inside ? v->begin + first : nullptr;
}

double vector_at(const vector* v, int32_t index)
{
    const double* const element = vector_view(v, index, 1);
    return element != nullptr ? *element : 0.0;
}

bool vector_set(vector* v, int32_t index, double value)
{
    double* const element = vector_view(v, index, 1);
    if (element == nullptr) {
        return false;
    }
    *element = value;
    return true;
}

double vector_back(const vector* v) { return vector_at(v, -1); }

bool vector_push_back(vector* v, double value)
{
    double* const place = vector_extend(v, 1);
    if (place == nullptr) {
        return false;
    }
    *place = value;
    return true;
}

uint32_t vector_remove_front(vector* v, uint32_t n)
{
    if (v == nullptr) {
        return 0;
    }
    if (n < v->size) {
        v->begin += n;
        v->size -= n;
        return n;
    }
    const uint32_t removed = v->size;
    v->begin = v->storage;
    v->end = v->storage;
    v->size = 0;
    return removed;
}

namespace kosc {

double* vector_extend(vector* v, uint32_t count)
{
    if (v == nullptr || count > v->capacity - v->size) {
        return nullptr;
    }
    if (static_cast<size_t>(v->storage_end - v->end) < count) {
        // Removals left room only before `begin`.
        std::memmove(v->storage, v->begin, v->size * sizeof(double));
        v->begin = v->storage;
        v->end = v->storage + v->size;
    }
    double* const place = v->end;
    v->end += count;
    v->size += count;
    return place;
}

} // namespace kosc
